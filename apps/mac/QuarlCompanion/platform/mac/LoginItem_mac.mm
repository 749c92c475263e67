#include "LoginItem_mac.h"

#import <AppKit/AppKit.h>
#import <ServiceManagement/ServiceManagement.h>

#include "Alert_mac.h"
#include "platform/mac/Text_mac.h"

namespace quarl {

// The alert is modal, a question answered before anything else on the Mac's screen; the
// coordinator's work goes on meanwhile.
boost::asio::awaitable<bool> MacLoginItem::ask(LoginQuestion question) {
  NSAlert* alert = [[NSAlert alloc] init];
  [alert setMessageText:nsString(question.message)];
  [alert setInformativeText:nsString(question.informativeText)];
  [alert addButtonWithTitle:nsString(question.yes)];
  [alert addButtonWithTitle:nsString(question.no)];
  co_return co_await answerTo(alert) == NSAlertFirstButtonReturn;
}

std::optional<std::string> MacLoginItem::registerMainApplication() {
  @autoreleasepool {
    NSError* error = nil;
    if ([[SMAppService mainAppService] registerAndReturnError:&error]) return std::nullopt;
    return error ? utf8([error localizedDescription]) : std::string("no reason was given");
  }
}

bool MacLoginItem::isRegistered() {
  @autoreleasepool {
    return [[SMAppService mainAppService] status] == SMAppServiceStatusEnabled;
  }
}

void MacLoginItem::tell(const std::string& sentence) { tellLater(sentence); }

}  // namespace quarl

#include "LoginItem_mac.h"

#import <AppKit/AppKit.h>
#import <ServiceManagement/ServiceManagement.h>

namespace quarl {

namespace {

NSString* text(const std::string& value) { return [NSString stringWithUTF8String:value.c_str()]; }

}  // namespace

// The alert is modal: it runs its own loop on the main thread until it is answered, as a
// question that must be answered before anything else on the Mac's screen is.
boost::asio::awaitable<bool> MacLoginItem::ask(LoginQuestion question) {
  bool yes = false;
  @autoreleasepool {
    NSAlert* alert = [[NSAlert alloc] init];
    [alert setMessageText:text(question.message)];
    [alert setInformativeText:text(question.informativeText)];
    [alert addButtonWithTitle:text(question.yes)];
    [alert addButtonWithTitle:text(question.no)];
    [NSApp activateIgnoringOtherApps:YES];
    yes = [alert runModal] == NSAlertFirstButtonReturn;
  }
  co_return yes;
}

std::optional<std::string> MacLoginItem::registerMainApplication() {
  @autoreleasepool {
    NSError* error = nil;
    if ([[SMAppService mainAppService] registerAndReturnError:&error]) return std::nullopt;
    return std::string(error ? [[error localizedDescription] UTF8String] : "no reason was given");
  }
}

bool MacLoginItem::isRegistered() {
  @autoreleasepool {
    return [[SMAppService mainAppService] status] == SMAppServiceStatusEnabled;
  }
}

void MacLoginItem::tell(const std::string& sentence) {
  @autoreleasepool {
    NSAlert* alert = [[NSAlert alloc] init];
    [alert setMessageText:text(sentence)];
    [alert addButtonWithTitle:@"OK"];
    [alert runModal];
  }
}

}  // namespace quarl

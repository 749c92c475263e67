#include "Alert_mac.h"

#include <boost/asio/this_coro.hpp>

#include "Completion_mac.h"
#include "platform/mac/Text_mac.h"

// Holds an alert until the run loop, outside any queue block, gets to it.
@interface QuarlAlertRunner : NSObject {
 @public
  NSAlert* alert;
  std::function<void(NSModalResponse)> answered;
}
- (void)run;
@end

@implementation QuarlAlertRunner
- (void)run {
  [NSApp activate];
  const NSModalResponse response = [alert runModal];
  if (answered) answered(response);
}
@end

namespace quarl {

void runAlertLater(NSAlert* alert, std::function<void(NSModalResponse)> answered) {
  QuarlAlertRunner* runner = [[QuarlAlertRunner alloc] init];
  runner->alert = alert;
  runner->answered = std::move(answered);
  [runner performSelector:@selector(run) withObject:nil afterDelay:0];
}

boost::asio::awaitable<NSModalResponse> answerTo(NSAlert* alert) {
  Completion<NSModalResponse> chosen(co_await boost::asio::this_coro::executor);
  runAlertLater(alert, chosen.handler());
  co_return co_await chosen.value();
}

void tellLater(const std::string& sentence) {
  NSAlert* alert = [[NSAlert alloc] init];
  [alert setMessageText:nsString(sentence)];
  [alert addButtonWithTitle:@"OK"];
  runAlertLater(alert, nullptr);
}

}  // namespace quarl

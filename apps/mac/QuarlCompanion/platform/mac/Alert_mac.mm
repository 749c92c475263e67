#include "Alert_mac.h"

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <memory>

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
  auto executor = co_await boost::asio::this_coro::executor;
  auto chosen = std::make_shared<boost::asio::steady_timer>(executor, boost::asio::steady_timer::time_point::max());
  auto response = std::make_shared<NSModalResponse>(NSModalResponseCancel);
  runAlertLater(alert, [chosen, response](NSModalResponse answer) {
    *response = answer;
    boost::asio::post(chosen->get_executor(), [chosen] { chosen->cancel(); });
  });
  co_await chosen->async_wait(boost::asio::as_tuple(boost::asio::use_awaitable));
  co_return *response;
}

void tellLater(const std::string& sentence) {
  NSAlert* alert = [[NSAlert alloc] init];
  [alert setMessageText:nsString(sentence)];
  [alert addButtonWithTitle:@"OK"];
  runAlertLater(alert, nullptr);
}

}  // namespace quarl

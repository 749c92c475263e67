#pragma once

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <list>
#include <vector>

#include "Clock.h"

namespace quarl::testing {

// A clock that stands still until the test moves it. A sleeper wakes when `advance` carries
// the time past its deadline; the test then runs the loop (io.poll()) to let it go on.
class ManualClock final : public Clock {
 public:
  explicit ManualClock(SystemTime start) : now_(start) {}

  SystemTime now() const override { return now_; }

  boost::asio::awaitable<void> sleep(std::chrono::milliseconds duration) const override {
    const auto deadline = now_ + duration;
    boost::asio::steady_timer signal(co_await boost::asio::this_coro::executor,
                                     boost::asio::steady_timer::time_point::max());
    auto entry = sleepers_.insert(sleepers_.end(), &signal);
    sleeps_.push_back(duration);
    while (now_ < deadline) co_await signal.async_wait(boost::asio::as_tuple(boost::asio::use_awaitable));
    sleepers_.erase(entry);
  }

  // How many sleeps have begun on this clock, so a test can wait for the next one.
  std::size_t sleepsBegun() const { return sleeps_.size(); }
  // How long each sleep begun on this clock was to last, oldest first.
  const std::vector<std::chrono::milliseconds>& sleeps() const { return sleeps_; }

  void advance(std::chrono::system_clock::duration by) {
    now_ += by;
    for (auto* sleeper : sleepers_) sleeper->cancel();
  }

 private:
  SystemTime now_;
  mutable std::list<boost::asio::steady_timer*> sleepers_;
  mutable std::vector<std::chrono::milliseconds> sleeps_;
};

}  // namespace quarl::testing

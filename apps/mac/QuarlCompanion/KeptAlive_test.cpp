#include "KeptAlive.h"

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <gtest/gtest.h>

namespace quarl {
namespace {

struct Waiter {
  explicit Waiter(boost::asio::io_context& io) : timer(io, boost::asio::steady_timer::time_point::max()) {}
  boost::asio::awaitable<int> wait() {
    co_await timer.async_wait(boost::asio::as_tuple(boost::asio::use_awaitable));
    co_return answer;
  }
  boost::asio::steady_timer timer;
  int answer = 7;
};

TEST(KeptAlive, TheOwnerOutlivesEveryHolderOfItUntilItsCoroutineEnds) {
  boost::asio::io_context io;
  auto waiter = std::make_shared<Waiter>(io);
  const std::weak_ptr<Waiter> weak = waiter;
  std::optional<int> answered;
  boost::asio::co_spawn(io, keptAlive(waiter, waiter->wait()), [&](std::exception_ptr, int answer) { answered = answer; });
  waiter.reset();
  io.poll();
  ASSERT_FALSE(weak.expired()) << "the waiting coroutine still runs on it";
  weak.lock()->timer.cancel();
  io.poll();
  EXPECT_EQ(answered, 7);
  EXPECT_TRUE(weak.expired()) << "let go once the coroutine ended";
}

}  // namespace
}  // namespace quarl

#include "KeptAlive.h"

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <gtest/gtest.h>

#include <exception>
#include <optional>

namespace quarl {
namespace {

struct Waiter {
  explicit Waiter(boost::asio::io_context& io) : timer(io, boost::asio::steady_timer::time_point::max()) {}
  boost::asio::awaitable<int> wait() {
    co_await timer.async_wait(boost::asio::as_tuple(boost::asio::use_awaitable));
    co_return answer;
  }
  boost::asio::awaitable<void> waitQuietly() { co_await wait(); }
  boost::asio::steady_timer timer;
  int answer = 7;
};

TEST(KeptAlive, TheOwnerOutlivesEveryHolderOfItUntilItsCoroutineEnds) {
  boost::asio::io_context io;
  auto waiter = std::make_shared<Waiter>(io);
  const std::weak_ptr<Waiter> weak = waiter;
  std::optional<int> answered;
  bool ended = false;
  boost::asio::co_spawn(io, keptAlive(waiter, waiter->wait()), [&](std::exception_ptr, int answer) { answered = answer; });
  boost::asio::co_spawn(io, keptAlive(waiter, waiter->waitQuietly()), [&](std::exception_ptr) { ended = true; });
  waiter.reset();
  ASSERT_FALSE(weak.expired()) << "the spawned coroutines hold it";
  io.poll();
  ASSERT_FALSE(weak.expired()) << "the waiting coroutines still run on it";
  weak.lock()->timer.cancel();
  io.poll();
  EXPECT_TRUE(answered == 7 && ended);
  EXPECT_TRUE(weak.expired()) << "let go once the coroutines ended";
}

}  // namespace
}  // namespace quarl

#include "Clock.h"

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace quarl {

SystemTime SystemClock::now() const { return std::chrono::system_clock::now(); }

boost::asio::awaitable<void> SystemClock::sleep(std::chrono::milliseconds duration) const {
  boost::asio::steady_timer timer(co_await boost::asio::this_coro::executor, duration);
  co_await timer.async_wait(boost::asio::as_tuple(boost::asio::use_awaitable));
}

}  // namespace quarl

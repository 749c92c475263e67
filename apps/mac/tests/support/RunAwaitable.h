#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>

namespace quarl::testing {

// Runs `operation` on `io` until it finishes and gives its result; the test's thread runs
// the loop, so nothing else needs a thread.
template <class T>
T runAwaitable(boost::asio::io_context& io, boost::asio::awaitable<T> operation) {
  auto future = boost::asio::co_spawn(io, std::move(operation), boost::asio::use_future);
  io.restart();
  io.run();
  return future.get();
}

}  // namespace quarl::testing

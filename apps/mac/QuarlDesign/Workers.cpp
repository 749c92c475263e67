#include "Workers.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace quarl {
namespace asio = boost::asio;
namespace {

asio::thread_pool& workerPool() {
  static asio::thread_pool pool(2);
  return pool;
}

asio::awaitable<void> runWork(std::function<void()> work) {
  work();
  co_return;
}

}  // namespace

asio::awaitable<void> runOnWorker(std::function<void()> work) {
  co_await asio::co_spawn(workerPool(), runWork(std::move(work)), asio::use_awaitable);
}

}  // namespace quarl

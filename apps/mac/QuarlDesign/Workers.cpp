#include "Workers.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <openssl/crypto.h>

namespace quarl {
namespace asio = boost::asio;
namespace {

// OpenSSL loads its configuration here, on the first caller's thread, before the pool exists:
// loaded on first use by a worker instead, it leaves that worker's error state to leak at exit.
asio::thread_pool& workerPool() {
  static const bool cryptoReady = OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr) == 1;
  static asio::thread_pool pool(2);
  (void)cryptoReady;
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

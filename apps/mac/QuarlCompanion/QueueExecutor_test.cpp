#include "QueueExecutor.h"

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <condition_variable>
#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

namespace quarl {
namespace {

namespace asio = boost::asio;
using namespace std::chrono_literals;

// A queue drained by the test's own thread, as the main dispatch queue is by the main thread.
struct DrainedQueue {
  static void post(void* queue, void (*run)(void*), void* work) {
    auto* self = static_cast<DrainedQueue*>(queue);
    std::lock_guard lock(self->mutex);
    self->items.emplace_back([run, work] { run(work); });
    self->posted.notify_one();
  }
  // Runs what comes until `done`; false when nothing came for a second.
  bool drainUntil(const bool& done) {
    while (!done) {
      std::unique_lock lock(mutex);
      if (!posted.wait_for(lock, 1s, [&] { return !items.empty(); })) return false;
      auto item = std::move(items.front());
      items.pop_front();
      lock.unlock();
      item();
    }
    return true;
  }
  std::mutex mutex;
  std::condition_variable posted;
  std::deque<std::function<void()>> items;
};

asio::awaitable<void> waitThenNote(std::thread::id* after, int* steps) {
  asio::steady_timer timer(co_await asio::this_coro::executor, 20ms);
  ++*steps;
  co_await timer.async_wait(asio::use_awaitable);
  *after = std::this_thread::get_id();
  ++*steps;
}

TEST(QueueExecutor, CoroutinesRunOnTheQueuesThreadWhileTheirTimersRunOnTheContextsThread) {
  asio::io_context network;
  auto keep = asio::make_work_guard(network);
  std::thread networkThread([&] { network.run(); });
  DrainedQueue queue;
  const asio::any_io_executor main = QueueExecutor(network, &DrainedQueue::post, &queue);

  std::thread::id after;
  int steps = 0;
  bool done = false;
  asio::co_spawn(main, waitThenNote(&after, &steps), [&](std::exception_ptr) { done = true; });
  EXPECT_EQ(steps, 0) << "nothing runs at the hand-over itself";
  EXPECT_TRUE(queue.drainUntil(done));
  EXPECT_EQ(steps, 2);
  EXPECT_EQ(after, std::this_thread::get_id()) << "the timer's completion came back to the queue";

  keep.reset();
  networkThread.join();
}

}  // namespace
}  // namespace quarl

#pragma once

#include <boost/asio/execution.hpp>
#include <boost/asio/execution_context.hpp>
#include <boost/asio/io_context.hpp>
#include <memory>
#include <utility>

namespace quarl {

// The main executor of an application whose main thread belongs to its windowing system: work
// handed to it runs on a queue that the platform drains on that thread (the main dispatch queue
// on a Mac). Its timers and sockets belong to `context`, an io_context run on a thread of its
// own that keeps it running; only their completions come to the queue, so every coroutine of
// the coordinator still runs on the one thread the windows run on.
class QueueExecutor {
 public:
  // Hands `run(work)` to `queue`, to be called once on the queue's thread; never runs it here.
  using Post = void (*)(void* queue, void (*run)(void* work), void* work);

  QueueExecutor(boost::asio::io_context& context, Post post, void* queue) noexcept
      : context_(&context), post_(post), queue_(queue) {}

  boost::asio::execution_context& query(boost::asio::execution::context_t) const noexcept { return *context_; }
  static constexpr boost::asio::execution::blocking_t query(boost::asio::execution::blocking_t) noexcept {
    return boost::asio::execution::blocking.never;
  }
  QueueExecutor require(boost::asio::execution::blocking_t::never_t) const noexcept { return *this; }

  template <class Function>
  void execute(Function&& function) const {
    using Work = std::decay_t<Function>;
    auto* work = new Work(std::forward<Function>(function));
    post_(queue_, &runOnce<Work>, work);
  }

  friend bool operator==(const QueueExecutor& a, const QueueExecutor& b) noexcept {
    return a.context_ == b.context_ && a.post_ == b.post_ && a.queue_ == b.queue_;
  }
  friend bool operator!=(const QueueExecutor& a, const QueueExecutor& b) noexcept { return !(a == b); }

 private:
  template <class Work>
  static void runOnce(void* held) {
    std::unique_ptr<Work> work(static_cast<Work*>(held));
    (*work)();
  }

  boost::asio::io_context* context_;
  Post post_;
  void* queue_;
};

}  // namespace quarl

#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "Clock.h"

namespace quarl {

// Wakes the operator link's wait early, when something it should act on happens. Called from
// any thread; waiters are always called after the lock is let go.
class OperatorWakeSignal : public std::enable_shared_from_this<OperatorWakeSignal> {
 public:
  // Called once: true when woken by a signal, false when the wait ran out or was cancelled.
  using Waiter = std::function<void(bool woken)>;

  OperatorWakeSignal(boost::asio::any_io_executor executor, std::shared_ptr<const Clock> clock)
      : executor_(std::move(executor)), clock_(std::move(clock)) {}

  // Wakes the armed waiter, or the next one to arm when none is.
  void signal();
  // Waits up to `upTo` on the clock. A signal that came while nobody waited wakes it at once;
  // a waiter armed before is woken (true) to make room.
  void arm(std::chrono::milliseconds upTo, Waiter waiter);
  // The wait of `generation` ran out; a later wait is left alone.
  void expire(std::uint64_t generation);
  void cancelWait();

 private:
  boost::asio::any_io_executor executor_;
  std::shared_ptr<const Clock> clock_;
  std::mutex mutex_;
  bool pending_ = false;
  Waiter waiter_;
  std::uint64_t generation_ = 0;
};

}  // namespace quarl

#include "OperatorWakeSignal.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>

namespace quarl {
namespace asio = boost::asio;

namespace {

asio::awaitable<void> expireAfter(std::weak_ptr<OperatorWakeSignal> weak, std::shared_ptr<const Clock> clock,
                                  std::chrono::milliseconds wait, std::uint64_t generation) {
  co_await clock->sleep(wait);
  if (auto signal = weak.lock()) signal->expire(generation);
}

}  // namespace

void OperatorWakeSignal::signal() {
  Waiter woken;
  {
    std::lock_guard lock(mutex_);
    if (!waiter_) {
      pending_ = true;
      return;
    }
    woken = std::move(waiter_);
    waiter_ = nullptr;
    ++generation_;
  }
  woken(true);
}

void OperatorWakeSignal::arm(std::chrono::milliseconds upTo, Waiter waiter) {
  Waiter earlier;
  std::uint64_t generation = 0;
  {
    std::unique_lock lock(mutex_);
    if (pending_) {
      pending_ = false;
      lock.unlock();
      waiter(true);
      return;
    }
    // A waiter made room for is consumed like any other, so its timer cannot end the new wait.
    if (waiter_) {
      earlier = std::move(waiter_);
      ++generation_;
    }
    waiter_ = std::move(waiter);
    generation = generation_;
  }
  if (earlier) earlier(true);
  asio::co_spawn(executor_, expireAfter(weak_from_this(), clock_, std::max(upTo, std::chrono::milliseconds(0)), generation),
                 asio::detached);
}

void OperatorWakeSignal::expire(std::uint64_t generation) {
  Waiter expired;
  {
    std::lock_guard lock(mutex_);
    if (generation_ != generation || !waiter_) return;
    expired = std::move(waiter_);
    waiter_ = nullptr;
    ++generation_;
  }
  expired(false);
}

void OperatorWakeSignal::cancelWait() {
  Waiter cancelled;
  {
    std::lock_guard lock(mutex_);
    cancelled = std::move(waiter_);
    waiter_ = nullptr;
    ++generation_;
  }
  if (cancelled) cancelled(false);
}

}  // namespace quarl

#pragma once

#include <boost/asio/awaitable.hpp>
#include <chrono>

namespace quarl {

using SystemTime = std::chrono::system_clock::time_point;

// Every "now" and every wait of the companion go through a Clock handed in at construction,
// so that tests decide what time it is instead of waiting for it.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual SystemTime now() const = 0;
  // Resumes the caller, on its own executor, once `duration` has passed on this clock.
  virtual boost::asio::awaitable<void> sleep(std::chrono::milliseconds duration) const = 0;
};

// The wall clock, and waits that take real time.
class SystemClock final : public Clock {
 public:
  SystemTime now() const override;
  boost::asio::awaitable<void> sleep(std::chrono::milliseconds duration) const override;
};

}  // namespace quarl

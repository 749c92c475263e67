#pragma once

#include <chrono>

namespace quarl {

using SystemTime = std::chrono::system_clock::time_point;

// Every "now" of the companion comes from a Clock handed in at construction, so that tests
// decide what time it is instead of waiting for it.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual SystemTime now() const = 0;
};

// The wall clock.
class SystemClock final : public Clock {
 public:
  SystemTime now() const override;
};

// A clock that stands still until a test moves it.
class ManualClock final : public Clock {
 public:
  explicit ManualClock(SystemTime start) : now_(start) {}
  SystemTime now() const override { return now_; }
  void advance(std::chrono::system_clock::duration by) { now_ += by; }
  void set(SystemTime to) { now_ = to; }

 private:
  SystemTime now_;
};

}  // namespace quarl

#pragma once

namespace quarl {

// Keeps the system from napping the companion (timers slowed, the process throttled) while it
// has work to do. Main executor only.
class NapHold {
 public:
  virtual ~NapHold() = default;
  // Holds off napping while `on`; telling it the same twice changes nothing.
  virtual void hold(bool on) = 0;
};

}  // namespace quarl

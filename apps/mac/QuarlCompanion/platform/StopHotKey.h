#pragma once

#include <functional>
#include <optional>
#include <string>

namespace quarl {

// The system-wide keys that stop a run (Control-Option-Command-period on a Mac).
class StopHotKey {
 public:
  virtual ~StopHotKey() = default;
  // Registers the keys for the life of this object; `pressed` runs on the main executor. None
  // when they are registered, else the sentence of why this computer has none.
  virtual std::optional<std::string> registerKeys(std::function<void()> pressed) = 0;
};

}  // namespace quarl

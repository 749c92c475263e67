#pragma once

#include <optional>
#include <string>

namespace quarl {

// Keeping the Mac awake while a run is live, when the owner allows it, and waking its display
// before a step that looks or acts. Touched on the main executor only.
class KeepAwake {
 public:
  virtual ~KeepAwake() = default;
  // Holds off idle sleep until `release`. None when held, else the sentence of why not.
  virtual std::optional<std::string> hold() = 0;
  virtual void release() = 0;
  // Tells the system the owner is active, so that it wakes the display; whether it was told.
  virtual bool declareUserActivity() = 0;
};

}  // namespace quarl

#pragma once

#include <cstdint>

#include "platform/KeepAwake.h"

namespace quarl {

// IOKit power assertions: one that holds off idle sleep while a run is live, and a declared
// user activity that wakes the display before a step looks or acts.
class MacKeepAwake final : public KeepAwake {
 public:
  ~MacKeepAwake() override;

  std::optional<std::string> hold() override;
  void release() override;
  bool declareUserActivity() override;

 private:
  std::uint32_t held_ = 0;  // the assertion's id; 0 while none is held
  std::uint32_t activity_ = 0;
};

}  // namespace quarl

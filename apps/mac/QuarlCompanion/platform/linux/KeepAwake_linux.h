#pragma once

#include "platform/KeepAwake.h"

namespace quarl {

// The headless host has no power assertions to take and no display to wake.
class UnavailableKeepAwake final : public KeepAwake {
 public:
  std::optional<std::string> hold() override;
  void release() override {}
  bool declareUserActivity() override { return false; }
};

}  // namespace quarl

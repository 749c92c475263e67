#pragma once

#include "platform/StopHotKey.h"

namespace quarl {

// The headless host has no keyboard of its own to listen to; `quarl-companion operator-stop`
// stops a run instead.
class UnavailableStopHotKey final : public StopHotKey {
 public:
  std::optional<std::string> registerKeys(std::function<void()> pressed) override;
};

}  // namespace quarl

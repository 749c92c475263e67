#pragma once

#include <optional>
#include <string>
#include <variant>

#include "MacPermissionMode.h"

namespace quarl {

// What the menu's mode picker does with the owner's choice. A narrower mode is set at once; a
// wider one only by the owner's own press on the service's settings page, so the Mac opens it.
struct MacModeMenu {
  struct Nothing {};
  struct SetMode {
    MacPermissionMode mode;
  };
  struct OpenSettings {
    std::string path;
  };
  using Choice = std::variant<Nothing, SetMode, OpenSettings>;

  // An unknown current mode counts as "ask".
  static Choice choose(MacPermissionMode chosen, std::optional<MacPermissionMode> current, const std::string& deviceId);
  // "/app/settings?mac=<device id>&mode=<raw value>", with both values encoded for a query.
  static std::string settingsPath(const std::string& deviceId, MacPermissionMode mode);
  // The mode the service holds for this Mac, from the heartbeat's "macPermissionMode".
  static std::optional<MacPermissionMode> mode(const std::optional<std::string>& fromHeartbeat);
};

}  // namespace quarl

#include "MacModeMenu.h"

#include <boost/url/url.hpp>

namespace quarl {

MacModeMenu::Choice MacModeMenu::choose(MacPermissionMode chosen, std::optional<MacPermissionMode> current,
                                        const std::string& deviceId) {
  const auto now = current.value_or(MacPermissionMode::ask);
  if (chosen == now) return Nothing{};
  if (widens(now, chosen)) return OpenSettings{settingsPath(deviceId, chosen)};
  return SetMode{chosen};
}

std::string MacModeMenu::settingsPath(const std::string& deviceId, MacPermissionMode mode) {
  boost::urls::url path("/app/settings");
  path.params().append({"mac", deviceId});
  path.params().append({"mode", rawValue(mode)});
  return std::string(path.buffer());
}

std::optional<MacPermissionMode> MacModeMenu::mode(const std::optional<std::string>& fromHeartbeat) {
  return fromHeartbeat ? macPermissionMode(*fromHeartbeat) : std::nullopt;
}

}  // namespace quarl

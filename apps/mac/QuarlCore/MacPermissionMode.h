#pragma once

#include <optional>
#include <string_view>

namespace quarl {

// How freely the service may work on this Mac, from narrowest to widest. `automatic` is "auto"
// on the wire.
enum class MacPermissionMode { ask, autoRead, automatic };

int rank(MacPermissionMode mode);
std::string_view rawValue(MacPermissionMode mode);
std::string_view label(MacPermissionMode mode);
// The line that explains the mode under its label.
std::string_view line(MacPermissionMode mode);
// True when `to` is wider than `from`.
bool widens(MacPermissionMode from, MacPermissionMode to);
std::optional<MacPermissionMode> macPermissionMode(std::string_view raw);

// What a held step asks the owner for; its raw value is the wire's "asks".
enum class MacPermissionAsk { folder, app };

constexpr std::string_view rawValue(MacPermissionAsk ask) { return ask == MacPermissionAsk::folder ? "folder" : "app"; }

}  // namespace quarl

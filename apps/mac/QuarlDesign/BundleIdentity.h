#pragma once

#include <string_view>

namespace quarl {

// Who the application is to the Mac: the prefix of its bundle identifiers, and its own, which
// also names its keychain items and its unified-log subsystem.
inline constexpr std::string_view bundlePrefix = "app.quarl";
inline constexpr std::string_view bundleIdentifier = "app.quarl.companion";

}  // namespace quarl

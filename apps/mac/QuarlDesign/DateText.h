#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Clock.h"

namespace quarl {

// ISO 8601 in UTC with milliseconds, as the wire and the logs write dates:
// "2026-11-23T09:41:07.250Z".
std::string iso8601(SystemTime time);

// Reads what people type for an instant: "2026-11-23T09:41:07Z", with optional fractional
// seconds and an optional "+hh:mm"/"-hh:mm" offset in place of "Z". None for anything else.
std::optional<SystemTime> instantFromIso8601(std::string_view text);

// A date relative to now in whole, full-word units: "5 minutes ago", "1 day ago",
// "in 2 hours". The largest unit that fits is used, counted down to whole units.
std::string relativeDateText(SystemTime date, SystemTime now);

}  // namespace quarl

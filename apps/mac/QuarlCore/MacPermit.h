#pragma once

#include <boost/json/value.hpp>
#include <optional>
#include <string>
#include <vector>

#include "MacPermissionMode.h"

namespace quarl {

// The owner's mode and standing permits, as a step's answer carries them in "permit".
struct MacPermit {
  MacPermissionMode mode = MacPermissionMode::ask;
  std::vector<std::string> folders;  // folder paths allowed for good
  std::vector<std::string> apps;     // apps allowed for good

  // None when there is no permit object or its mode is missing or unknown. A list that is
  // missing or not all text is empty.
  static std::optional<MacPermit> from(const std::optional<boost::json::value>& permit);
  // The permit a step is weighed against. A step whose answer carries no permit we can read is
  // treated as mode "ask" with nothing allowed for good: the narrowest reading, so a lost or
  // garbled permit can only make Quarl ask more, never do more.
  static MacPermit forStep(const std::optional<boost::json::value>& permit);
};

}  // namespace quarl

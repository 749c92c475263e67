#pragma once

#include "SettingsStore.h"

namespace quarl {

// The application's user defaults (NSUserDefaults). JSON travels as property-list values:
// text, numbers, booleans, arrays and dictionaries; null is stored as the key's absence.
class MacSettingsStore final : public SettingsStore {
 public:
  std::optional<boost::json::value> read(std::string_view key) const override;
  bool write(std::string_view key, boost::json::value value) override;
  bool remove(std::string_view key) override;
};

}  // namespace quarl

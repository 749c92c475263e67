#pragma once

#include <boost/json/object.hpp>

#include "SettingsStore.h"

namespace quarl::testing {

// User defaults held in memory, for tests of code that reads and writes settings.
class MemorySettingsStore final : public SettingsStore {
 public:
  std::optional<boost::json::value> read(std::string_view key) const override {
    const auto* value = values_.if_contains(key);
    return value ? std::optional(*value) : std::nullopt;
  }
  bool write(std::string_view key, boost::json::value value) override {
    values_[key] = std::move(value);
    return true;
  }
  bool remove(std::string_view key) override {
    values_.erase(key);
    return true;
  }

 private:
  boost::json::object values_;
};

}  // namespace quarl::testing

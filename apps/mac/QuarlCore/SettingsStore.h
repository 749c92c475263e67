#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarl {

// The application's user defaults: keys to strings, booleans, integers, arrays of strings
// or data. Values travel as JSON (data as base64 text), which every platform can map onto
// its own store. Touched on the main executor only.
class SettingsStore {
 public:
  virtual ~SettingsStore() = default;

  virtual std::optional<boost::json::value> read(std::string_view key) const = 0;
  // Whether the value reached lasting storage.
  virtual bool write(std::string_view key, boost::json::value value) = 0;
  virtual bool remove(std::string_view key) = 0;

  // Typed readers: a key that is absent or holds another type gives none.
  std::optional<std::string> string(std::string_view key) const;
  std::optional<bool> boolean(std::string_view key) const;
  std::optional<std::int64_t> integer(std::string_view key) const;
  std::optional<std::vector<std::string>> strings(std::string_view key) const;
  std::optional<std::string> data(std::string_view key) const;

  bool writeStrings(std::string_view key, const std::vector<std::string>& values);
  bool writeData(std::string_view key, std::string_view bytes);
};

}  // namespace quarl

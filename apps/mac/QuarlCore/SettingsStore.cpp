#include "SettingsStore.h"

#include <boost/json/array.hpp>
#include <boost/json/string.hpp>

#include "Base64.h"

namespace quarl {
namespace json = boost::json;

std::optional<std::string> SettingsStore::string(std::string_view key) const {
  const auto value = read(key);
  if (!value || !value->is_string()) return std::nullopt;
  return std::string(value->get_string());
}

std::optional<bool> SettingsStore::boolean(std::string_view key) const {
  const auto value = read(key);
  if (!value || !value->is_bool()) return std::nullopt;
  return value->get_bool();
}

std::optional<std::int64_t> SettingsStore::integer(std::string_view key) const {
  const auto value = read(key);
  if (!value) return std::nullopt;
  if (value->is_int64()) return value->get_int64();
  if (value->is_uint64() && value->get_uint64() <= std::uint64_t(INT64_MAX)) {
    return static_cast<std::int64_t>(value->get_uint64());
  }
  return std::nullopt;
}

std::optional<std::vector<std::string>> SettingsStore::strings(std::string_view key) const {
  const auto value = read(key);
  if (!value || !value->is_array()) return std::nullopt;
  std::vector<std::string> out;
  for (const auto& element : value->get_array()) {
    if (!element.is_string()) return std::nullopt;
    out.emplace_back(element.get_string());
  }
  return out;
}

std::optional<std::string> SettingsStore::data(std::string_view key) const {
  const auto text = string(key);
  if (!text) return std::nullopt;
  return base64Decode(*text);
}

bool SettingsStore::writeStrings(std::string_view key, const std::vector<std::string>& values) {
  json::array array;
  for (const auto& value : values) array.emplace_back(value);
  return write(key, std::move(array));
}

bool SettingsStore::writeData(std::string_view key, std::string_view bytes) {
  return write(key, json::string(base64Encode(bytes)));
}

}  // namespace quarl

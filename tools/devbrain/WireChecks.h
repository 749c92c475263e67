#pragma once

#include <algorithm>
#include <boost/json/object.hpp>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

// The small checks devbrain's desks make of request bodies.
namespace devbrain::wire {

inline bool isText(const boost::json::object& body, std::string_view key) {
  const auto* value = body.if_contains(key);
  return value && value->is_string();
}

inline bool isInteger(const boost::json::object& body, std::string_view key) {
  const auto* value = body.if_contains(key);
  return value && (value->is_int64() || value->is_uint64());
}

// A key of `body` that is not among `known`.
inline std::optional<std::string> unknownKey(const boost::json::object& body,
                                             std::initializer_list<std::string_view> known) {
  for (const auto& member : body) {
    if (std::find(known.begin(), known.end(), member.key()) == known.end()) return std::string(member.key());
  }
  return std::nullopt;
}

inline bool isOneOf(const boost::json::value* value, std::initializer_list<std::string_view> allowed) {
  return value && value->is_string() && std::find(allowed.begin(), allowed.end(), value->get_string()) != allowed.end();
}

}  // namespace devbrain::wire

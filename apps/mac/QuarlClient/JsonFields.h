#pragma once

#include <boost/json/object.hpp>
#include <boost/json/value_to.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quarl {

// Optional fields of the service's answers: a key that is absent, or holds another type,
// gives none. A value that is not an object has no fields.
std::optional<std::string> textField(const boost::json::object& object, std::string_view key);
std::optional<std::string> textField(const boost::json::value& value, std::string_view key);
std::optional<std::int64_t> integerField(const boost::json::object& object, std::string_view key);

// An optional key of a record being decoded: absent or null gives none; anything else must have
// the right type, or value_to throws, which try_value_to turns into a decoding failure.
template <class T>
std::optional<T> optionalMember(const boost::json::object& object, std::string_view key) {
  const auto* member = object.if_contains(key);
  if (!member || member->is_null()) return std::nullopt;
  return boost::json::value_to<T>(*member);
}

}  // namespace quarl

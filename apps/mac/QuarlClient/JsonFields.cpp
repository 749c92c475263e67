#include "JsonFields.h"

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

namespace quarl {

std::optional<std::string> textField(const boost::json::object& object, std::string_view key) {
  const auto* member = object.if_contains(key);
  if (!member || !member->is_string()) return std::nullopt;
  return std::string(member->get_string());
}

std::optional<std::string> textField(const boost::json::value& value, std::string_view key) {
  const auto* object = value.if_object();
  return object ? textField(*object, key) : std::nullopt;
}

std::optional<std::int64_t> integerField(const boost::json::object& object, std::string_view key) {
  const auto* member = object.if_contains(key);
  if (!member || !member->is_int64()) return std::nullopt;
  return member->get_int64();
}

}  // namespace quarl

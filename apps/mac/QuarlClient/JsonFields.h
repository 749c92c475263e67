#pragma once

#include <boost/json/fwd.hpp>
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

}  // namespace quarl

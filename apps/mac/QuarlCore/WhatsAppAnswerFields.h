#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quarl::WhatsAppWeb {

// Fields of a page script's answer, each read behind its own guard: a key that is absent or
// holds another type gives none and costs only that field.
std::optional<std::string> stringOf(const boost::json::object& object, std::string_view key);
std::optional<bool> boolOf(const boost::json::object& object, std::string_view key);
// A count or size: a non-negative finite number, floored, or a string of digits.
std::optional<std::int64_t> wholeOf(const boost::json::object& object, std::string_view key);

}  // namespace quarl::WhatsAppWeb

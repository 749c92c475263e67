#include "WhatsAppAnswerFields.h"

#include <charconv>
#include <cmath>

namespace quarl::WhatsAppWeb {
namespace json = boost::json;

std::optional<std::string> stringOf(const json::object& object, std::string_view key) {
  const auto* value = object.if_contains(key);
  if (!value || !value->is_string()) return std::nullopt;
  return std::string(value->as_string());
}

std::optional<bool> boolOf(const json::object& object, std::string_view key) {
  const auto* value = object.if_contains(key);
  if (!value || !value->is_bool()) return std::nullopt;
  return value->get_bool();
}

std::optional<std::int64_t> wholeOf(const json::object& object, std::string_view key) {
  const auto* value = object.if_contains(key);
  if (!value) return std::nullopt;
  if (value->is_string()) {
    const std::string_view digits = value->get_string();
    std::int64_t whole = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), whole);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size() || whole < 0) return std::nullopt;
    return whole;
  }
  if (!value->is_number()) return std::nullopt;
  boost::system::error_code error;
  const auto number = value->to_number<double>(error);
  if (error || !std::isfinite(number) || number < 0 || number > 9e15) return std::nullopt;
  return static_cast<std::int64_t>(std::floor(number));
}

}  // namespace quarl::WhatsAppWeb

#include "Tokens.h"

#include "Base64.h"

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <cmath>
#include <string>

namespace quarl {

std::optional<SystemTime> accessTokenExpiry(std::string_view token) {
  const auto first = token.find('.');
  if (first == std::string_view::npos) return std::nullopt;
  const auto second = token.find('.', first + 1);
  if (second == std::string_view::npos || token.find('.', second + 1) != std::string_view::npos) {
    return std::nullopt;
  }
  const auto payload = base64UrlDecode(token.substr(first + 1, second - first - 1));
  if (!payload) return std::nullopt;

  boost::system::error_code error;
  const auto json = boost::json::parse(*payload, error);
  if (error || !json.is_object()) return std::nullopt;
  const auto* exp = json.as_object().if_contains("exp");
  if (!exp || !exp->is_number()) return std::nullopt;
  const double seconds = exp->to_number<double>();
  // Beyond a few thousand years a time_point overflows; such a token is no token of ours.
  if (!std::isfinite(seconds) || std::fabs(seconds) > 1e11) return std::nullopt;
  return SystemTime(std::chrono::duration_cast<SystemTime::duration>(std::chrono::duration<double>(seconds)));
}

bool accessTokenIsUsable(std::string_view token, std::chrono::seconds margin, SystemTime now) {
  const auto expiry = accessTokenExpiry(token);
  return expiry && *expiry > now + margin;
}

}  // namespace quarl

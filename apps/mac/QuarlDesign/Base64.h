#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quarl {

// Standard base64 with padding (RFC 4648 §4).
std::string base64Encode(std::string_view bytes);
// None when `text` is not padded base64.
std::optional<std::string> base64Decode(std::string_view text);

// The URL-safe alphabet without padding, as JSON Web Tokens write it (RFC 4648 §5).
std::string base64UrlEncode(std::string_view bytes);
std::optional<std::string> base64UrlDecode(std::string_view text);

}  // namespace quarl

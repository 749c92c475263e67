#pragma once

#include <chrono>
#include <optional>
#include <string_view>

#include "Clock.h"

namespace quarl {

// When an access token (a JSON Web Token) expires, read from the "exp" of its payload; none
// when the token is not a JWT or carries no expiry. The signature is the service's business.
std::optional<SystemTime> accessTokenExpiry(std::string_view token);

// A token is usable when it expires more than `margin` after `now`; no expiry, not usable.
bool accessTokenIsUsable(std::string_view token, std::chrono::seconds margin, SystemTime now);

}  // namespace quarl

#pragma once

#include <string>

namespace quarl {

// The Mac's session with the service: a short-lived access token, the long-lived refresh
// token that renews it, and the device id issued at pairing.
struct Credentials {
  std::string accessToken;
  std::string refreshToken;
  std::string deviceId;

  bool operator==(const Credentials&) const = default;
};

}  // namespace quarl

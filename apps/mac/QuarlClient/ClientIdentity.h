#pragma once

#include <cstdint>
#include <string>

#include "HttpTransport.h"

namespace quarl {

// Who is calling the service: built once at start-up from the build and the system.
struct ClientIdentity {
  std::string platform;
  std::int64_t build = 0;
  std::string version;
  std::string deviceName;
  std::string osVersion;
};

// The headers that say who calls, on every request, signed or not.
HttpHeaders identityHeaders(const ClientIdentity& identity, std::string contentType);

}  // namespace quarl

#pragma once

#include <cstddef>
#include <string>

namespace quarl {

// Random identifiers from OpenSSL's random source, for names nobody may guess or collide with.

// `byteCount` random bytes written as lower-case hexadecimal.
std::string randomHex(std::size_t byteCount);

// A random (version 4) UUID in its usual upper-case form, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
std::string randomUuid();

}  // namespace quarl

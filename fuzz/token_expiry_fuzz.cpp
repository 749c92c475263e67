// Access tokens come from the service and from the keychain file: reading one must never
// crash, whatever the bytes.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Tokens.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view token(reinterpret_cast<const char*>(data), size);
  const auto expiry = quarl::accessTokenExpiry(token);
  const bool usable = quarl::accessTokenIsUsable(token, std::chrono::seconds(60), quarl::SystemTime{});
  if (usable && !expiry) __builtin_trap();
  return 0;
}

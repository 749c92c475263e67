// Blocked reasons and refusal sentences come from outside: any prefix cut must be valid UTF-8
// within its limit.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Utf16Text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t limit = data[0];
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  const auto cut = quarl::utf16Prefix(text, limit);
  if (!quarl::isValidUtf8(cut) || quarl::utf16Length(cut) > limit) __builtin_trap();
  if (quarl::utf16Length(text) <= limit && quarl::utf16Length(cut) != quarl::utf16Length(text)) __builtin_trap();
  return 0;
}

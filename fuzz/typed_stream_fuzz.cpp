// attributedBody blobs come from the Messages store, written by whoever sent the message:
// extraction must never read past the blob, and what it gives back must be UTF-8.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "TypedStreamText.h"
#include "Utf16Text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view blob(reinterpret_cast<const char*>(data), size);
  const auto text = quarl::plainTextFromTypedStream(blob);
  if (!text) return 0;
  if (text->empty() || !quarl::isValidUtf8(*text) || text->size() > size * 3) __builtin_trap();
  return 0;
}

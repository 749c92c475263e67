#include "TypedStreamText.h"

#include <cstdint>

#include "Utf16Text.h"

namespace quarl {
namespace {

constexpr unsigned char sixteenBitLength = 0x81;
constexpr unsigned char thirtyTwoBitLength = 0x82;

std::uint64_t littleEndian(std::string_view bytes) {
  std::uint64_t value = 0;
  for (std::size_t i = bytes.size(); i-- > 0;) value = (value << 8) | static_cast<unsigned char>(bytes[i]);
  return value;
}

}  // namespace

std::optional<std::string> plainTextFromTypedStream(std::string_view blob) {
  const auto className = blob.find("NSString");
  if (className == std::string_view::npos) return std::nullopt;
  const auto plus = blob.find('+', className + 8);
  if (plus == std::string_view::npos || plus + 1 >= blob.size()) return std::nullopt;

  auto rest = blob.substr(plus + 1);
  const auto marker = static_cast<unsigned char>(rest.front());
  rest.remove_prefix(1);
  std::size_t width = 0;
  if (marker == sixteenBitLength) width = 2;
  if (marker == thirtyTwoBitLength) width = 4;
  std::uint64_t length = marker;
  if (width > 0) {
    if (rest.size() < width) return std::nullopt;
    length = littleEndian(rest.substr(0, width));
    rest.remove_prefix(width);
  }
  if (length == 0 || length > rest.size()) return std::nullopt;
  return repairedUtf8(rest.substr(0, static_cast<std::size_t>(length)));
}

}  // namespace quarl

#include "RandomText.h"

#include <openssl/rand.h>

#include <array>
#include <stdexcept>
#include <vector>

namespace quarl {
namespace {

void fillRandom(unsigned char* bytes, std::size_t count) {
  // A random source that fails leaves nothing safe to name things with.
  if (RAND_bytes(bytes, static_cast<int>(count)) != 1) throw std::runtime_error("the random source failed");
}

std::string hex(const unsigned char* bytes, std::size_t count, const char* digits) {
  std::string text;
  text.reserve(count * 2);
  for (std::size_t i = 0; i < count; ++i) text += {digits[bytes[i] >> 4], digits[bytes[i] & 15]};
  return text;
}

}  // namespace

std::string randomHex(std::size_t byteCount) {
  std::vector<unsigned char> bytes(byteCount);
  fillRandom(bytes.data(), bytes.size());
  return hex(bytes.data(), bytes.size(), "0123456789abcdef");
}

std::string randomUuid() {
  std::array<unsigned char, 16> bytes{};
  fillRandom(bytes.data(), bytes.size());
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  const std::string digits = hex(bytes.data(), bytes.size(), "0123456789ABCDEF");
  return digits.substr(0, 8) + "-" + digits.substr(8, 4) + "-" + digits.substr(12, 4) + "-" + digits.substr(16, 4) +
         "-" + digits.substr(20);
}

}  // namespace quarl

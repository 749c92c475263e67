#include "Base64.h"

#include <openssl/evp.h>

namespace quarl {

std::string base64Encode(std::string_view bytes) {
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                     reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

std::optional<std::string> base64Decode(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::string bytes(text.size() / 4 * 3, '\0');
  const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                     reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
  if (length < 0) return std::nullopt;
  // EVP_DecodeBlock counts the bytes that padding stands for; they are not data.
  std::size_t padding = 0;
  for (auto it = text.rbegin(); it != text.rend() && *it == '=' && padding < 2; ++it) ++padding;
  bytes.resize(static_cast<std::size_t>(length) - padding);
  return bytes;
}

std::string base64UrlEncode(std::string_view bytes) {
  auto text = base64Encode(bytes);
  while (!text.empty() && text.back() == '=') text.pop_back();
  for (auto& c : text) c = c == '+' ? '-' : c == '/' ? '_' : c;
  return text;
}

std::optional<std::string> base64UrlDecode(std::string_view text) {
  std::string standard(text);
  for (auto& c : standard) {
    if (c == '+' || c == '/' || c == '=') return std::nullopt;
    c = c == '-' ? '+' : c == '_' ? '/' : c;
  }
  if (standard.size() % 4 == 1) return std::nullopt;
  while (standard.size() % 4 != 0) standard.push_back('=');
  return base64Decode(standard);
}

}  // namespace quarl

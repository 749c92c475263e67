#include "Sha256.h"

#include <openssl/evp.h>

namespace quarl {

struct Sha256::Context {
  Context() : md(EVP_MD_CTX_new()) { EVP_DigestInit_ex(md, EVP_sha256(), nullptr); }
  ~Context() { EVP_MD_CTX_free(md); }
  EVP_MD_CTX* md;
};

Sha256::Sha256() : context_(std::make_unique<Context>()) {}
Sha256::~Sha256() = default;

void Sha256::add(std::string_view bytes) { EVP_DigestUpdate(context_->md, bytes.data(), bytes.size()); }

std::string Sha256::hex() {
  static constexpr char digits[] = "0123456789abcdef";
  unsigned char sum[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_DigestFinal_ex(context_->md, sum, &length);
  std::string text;
  for (unsigned int i = 0; i < length; ++i) text += {digits[sum[i] >> 4], digits[sum[i] & 15]};
  return text;
}

std::string sha256Hex(std::string_view bytes) {
  Sha256 digest;
  digest.add(bytes);
  return digest.hex();
}

}  // namespace quarl

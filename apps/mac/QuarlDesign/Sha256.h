#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace quarl {

// SHA-256 through OpenSSL, fed in pieces; `hex()` ends it.
class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  void add(std::string_view bytes);
  // The digest of everything added, in lower-case hexadecimal.
  std::string hex();

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

// The SHA-256 of `bytes` in lower-case hexadecimal.
std::string sha256Hex(std::string_view bytes);

}  // namespace quarl

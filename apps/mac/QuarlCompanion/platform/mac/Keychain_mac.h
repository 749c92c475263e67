#pragma once

#include <string>

#include "platform/Keychain.h"

namespace quarl {

// The login keychain: generic-password items of one service (the application's bundle
// identifier), one per account, holding the value's UTF-8 bytes.
class MacKeychain final : public Keychain {
 public:
  explicit MacKeychain(std::string service) : service_(std::move(service)) {}

  std::optional<std::string> read(std::string_view account) const override;
  bool write(std::string_view account, std::string_view value) override;
  bool remove(std::string_view account) override;

 private:
  std::string service_;
};

}  // namespace quarl

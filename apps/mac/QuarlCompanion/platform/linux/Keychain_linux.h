#pragma once

#include "JsonObjectFile.h"
#include "platform/Keychain.h"

namespace quarl {

// The Linux host's stand-in for the login keychain: keychain.json in the config folder, one
// JSON object of account to text, readable by the owner alone (mode 0600).
class FileKeychain final : public Keychain {
 public:
  FileKeychain(std::filesystem::path directory, const Clock& clock);

  std::optional<std::string> read(std::string_view account) const override;
  bool write(std::string_view account, std::string_view value) override;
  bool remove(std::string_view account) override;

 private:
  JsonObjectFile file_;
};

}  // namespace quarl

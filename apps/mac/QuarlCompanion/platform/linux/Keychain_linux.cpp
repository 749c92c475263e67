#include "Keychain_linux.h"

namespace quarl {

FileKeychain::FileKeychain(std::filesystem::path directory, const Clock& clock)
    : file_(directory / "keychain.json", 0600, clock) {}

std::optional<std::string> FileKeychain::read(std::string_view account) const {
  const auto value = file_.member(account);
  if (!value || !value->is_string()) return std::nullopt;
  return std::string(value->get_string());
}

bool FileKeychain::write(std::string_view account, std::string_view value) {
  auto object = file_.snapshot();
  object[account] = value;
  return file_.save(std::move(object));
}

bool FileKeychain::remove(std::string_view account) {
  auto object = file_.snapshot();
  if (!object.contains(account)) return false;
  object.erase(account);
  return file_.save(std::move(object));
}

}  // namespace quarl

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
  return file_.update([&](boost::json::object& object) { object[account] = value; });
}

bool FileKeychain::remove(std::string_view account) {
  bool held = false;
  const bool saved = file_.update([&](boost::json::object& object) { held = object.erase(account) > 0; });
  return saved && held;
}

}  // namespace quarl

#include "SettingsStore_linux.h"

namespace quarl {

FileSettingsStore::FileSettingsStore(std::filesystem::path directory, const Clock& clock)
    : file_(directory / "defaults.json", 0600, clock) {}

std::optional<boost::json::value> FileSettingsStore::read(std::string_view key) const {
  return file_.member(key);
}

bool FileSettingsStore::write(std::string_view key, boost::json::value value) {
  return file_.update([&](boost::json::object& object) { object[key] = std::move(value); });
}

bool FileSettingsStore::remove(std::string_view key) {
  return file_.update([&](boost::json::object& object) { object.erase(key); });
}

}  // namespace quarl

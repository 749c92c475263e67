#include "SettingsStore_linux.h"

namespace quarl {

FileSettingsStore::FileSettingsStore(std::filesystem::path directory, const Clock& clock)
    : file_(directory / "defaults.json", 0600, clock) {}

std::optional<boost::json::value> FileSettingsStore::read(std::string_view key) const {
  return file_.member(key);
}

bool FileSettingsStore::write(std::string_view key, boost::json::value value) {
  auto object = file_.snapshot();
  object[key] = std::move(value);
  return file_.save(std::move(object));
}

bool FileSettingsStore::remove(std::string_view key) {
  auto object = file_.snapshot();
  if (!object.contains(key)) return true;
  object.erase(key);
  return file_.save(std::move(object));
}

}  // namespace quarl

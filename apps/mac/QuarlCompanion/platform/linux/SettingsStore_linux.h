#pragma once

#include "JsonObjectFile.h"
#include "SettingsStore.h"

namespace quarl {

// The user defaults of the Linux host: defaults.json in the config folder, one JSON object.
class FileSettingsStore final : public SettingsStore {
 public:
  FileSettingsStore(std::filesystem::path directory, const Clock& clock);

  std::optional<boost::json::value> read(std::string_view key) const override;
  bool write(std::string_view key, boost::json::value value) override;
  bool remove(std::string_view key) override;

 private:
  JsonObjectFile file_;
};

}  // namespace quarl

#pragma once

#include <sys/types.h>

#include <boost/json/object.hpp>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string_view>

#include "Clock.h"

namespace quarl {

// The folder the Linux host keeps its settings in: $XDG_CONFIG_HOME/quarl, else ~/.config/quarl.
std::filesystem::path configDirectory();

// One JSON object kept in one file, replaced atomically on every save (temporary file, fsync,
// rename), so that a crash leaves the old file or the new one and never half of either.
//
// A file that is not a JSON object is set aside as "<name>.corrupt-<time>" and logged, and
// the object starts empty: the companion never crashes on it and never overwrites it unread.
// A file that exists but cannot be read at all is left where it is, and saves are refused for
// the rest of the run. Safe to use from any thread.
class JsonObjectFile {
 public:
  JsonObjectFile(std::filesystem::path path, mode_t mode, const Clock& clock);

  boost::json::object snapshot() const;
  std::optional<boost::json::value> member(std::string_view key) const;
  // Replaces the file's content by `next`; whether it reached the disk. The object in memory
  // changes only when it did.
  bool save(boost::json::object next);

 private:
  void load(const Clock& clock);
  bool writeAtomically(const std::string& text) const;

  std::filesystem::path path_;
  mode_t mode_;
  mutable std::mutex mutex_;
  boost::json::object object_;
  bool writable_ = true;
};

}  // namespace quarl

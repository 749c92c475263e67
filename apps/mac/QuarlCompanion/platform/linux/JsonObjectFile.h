#pragma once

#include <sys/types.h>

#include <boost/json/object.hpp>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string_view>

#include "Clock.h"

namespace quarl {

// The folder the Linux host keeps its settings in: $XDG_CONFIG_HOME/quarl, else ~/.config/quarl.
std::filesystem::path configDirectory();

// One JSON object kept in one file, replaced atomically on every change (temporary file, fsync,
// rename), so that a crash leaves the old file or the new one and never half of either. Every
// change is made to the file as it is on disk now, under a lock shared by every process
// ("<name>.lock" beside it), so that one process never puts back a key another removed.
//
// A file that is not a JSON object is set aside as "<name>.corrupt-<time>" and logged, and
// the object starts empty: the companion never crashes on it and never overwrites it unread.
// A file that exists but cannot be read at all is left where it is, and saves are refused for
// the rest of the run. Safe to use from any thread.
class JsonObjectFile {
 public:
  JsonObjectFile(std::filesystem::path path, mode_t mode, const Clock& clock);

  std::optional<boost::json::value> member(std::string_view key) const;
  // Reads the file again, applies `change` and writes it back, all under the lock; whether it
  // reached the disk. The object in memory is the file's as last read or written.
  bool update(const std::function<void(boost::json::object&)>& change);

 private:
  void load(const Clock& clock);
  // The file's object as it is on disk now; none when it cannot be read as one.
  std::optional<boost::json::object> current() const;
  bool writeAtomically(const std::string& text) const;

  std::filesystem::path path_;
  mode_t mode_;
  mutable std::mutex mutex_;
  boost::json::object object_;
  bool writable_ = true;
};

}  // namespace quarl

#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <string>

#include "Clock.h"

namespace quarl {

// Which file a path named when it was found: the same path holding another file later is not
// this file, even when the volume gives the new one the old one's inode number, because it was
// born at another moment.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t bornNs = 0;  // since the epoch; 0 where the volume does not keep it
  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

// One file a search or a folder listing found.
struct FoundFile {
  std::string name;    // as the owner sees it
  std::string folder;  // "documents", "desktop", "downloads", "icloud" or "other"
  std::int64_t bytes = 0;
  SystemTime modifiedAt;
  bool cloudOnly = false;  // in iCloud and not downloaded
  std::string ref;         // minted by the run's reference table; empty until then
  std::string path;        // resolved; never sent
  FileIdentity identity;   // never sent

  // The object inside a file list's "files".
  boost::json::object wire() const;
};

}  // namespace quarl

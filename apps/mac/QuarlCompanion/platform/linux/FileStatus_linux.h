#pragma once

#include <optional>
#include <string>

#include "FoundFile.h"

namespace quarl {

// What the volume says of one plain file.
struct FileStatus {
  FileIdentity identity;
  std::int64_t bytes = 0;
  SystemTime modifiedAt;
};

// The plain file at `path` itself, never where a link there leads; none for anything else.
std::optional<FileStatus> plainFileAt(const std::string& path);
// The plain file open on `fd`; none for anything else.
std::optional<FileStatus> plainFileOn(int fd);

}  // namespace quarl

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

// A descriptor opened for reading, closed with this object; -1 when nothing was opened.
class OpenedFile {
 public:
  explicit OpenedFile(int fd) : fd_(fd) {}
  ~OpenedFile();
  OpenedFile(const OpenedFile&) = delete;
  OpenedFile& operator=(const OpenedFile&) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

// `path` opened without following a link there, and only if it is still the very file that
// `identity` names: what is read through it is what was found, whatever is put at the path
// later.
OpenedFile openFoundFile(const std::string& path, const FileIdentity& identity);
// `path` opened without following a link there, if it is a plain file: never a pipe, whose
// open or read could wait forever.
OpenedFile openPlainFile(const std::string& path);

// Up to `limit` bytes from where `fd` stands; none on a read error.
std::optional<std::string> readUpTo(int fd, std::int64_t limit);

}  // namespace quarl

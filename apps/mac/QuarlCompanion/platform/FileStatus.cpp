#include "platform/FileStatus.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace quarl {

OpenedFile::~OpenedFile() {
  if (fd_ >= 0) ::close(fd_);
}

namespace {

// Non-blocking, so that a pipe put at the path cannot hold the open; `accepts` refuses it.
template <class Accepts>
OpenedFile openIf(const std::string& path, Accepts accepts) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return OpenedFile(-1);
  const auto status = plainFileOn(fd);
  if (!status || !accepts(*status)) {
    ::close(fd);
    return OpenedFile(-1);
  }
  return OpenedFile(fd);
}

}  // namespace

OpenedFile openFoundFile(const std::string& path, const FileIdentity& identity) {
  return openIf(path, [&](const FileStatus& status) { return status.identity == identity; });
}

OpenedFile openPlainFile(const std::string& path) {
  return openIf(path, [](const FileStatus&) { return true; });
}

std::optional<std::string> readUpTo(int fd, std::int64_t limit) {
  std::string bytes;
  char buffer[65536];
  while (static_cast<std::int64_t>(bytes.size()) < limit) {
    const auto want = std::min<std::int64_t>(sizeof buffer, limit - static_cast<std::int64_t>(bytes.size()));
    const auto got = ::read(fd, buffer, static_cast<std::size_t>(want));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    bytes.append(buffer, static_cast<std::size_t>(got));
  }
  return bytes;
}

}  // namespace quarl

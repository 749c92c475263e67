#include "platform/FileStatus.h"

#include <fcntl.h>
#include <unistd.h>

namespace quarl {

OpenedFile::~OpenedFile() {
  if (fd_ >= 0) ::close(fd_);
}

OpenedFile openFoundFile(const std::string& path, const FileIdentity& identity) {
  // Non-blocking, so that a pipe put at the path cannot hold the open; it is refused below.
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return OpenedFile(-1);
  const auto status = plainFileOn(fd);
  if (!status || status->identity != identity) {
    ::close(fd);
    return OpenedFile(-1);
  }
  return OpenedFile(fd);
}

}  // namespace quarl

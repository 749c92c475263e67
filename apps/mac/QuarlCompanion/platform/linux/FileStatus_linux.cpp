#include "FileStatus_linux.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace quarl {

namespace {

std::optional<FileStatus> statusOf(int dirfd, const char* path, int flags) {
  struct statx status {};
  if (::statx(dirfd, path, flags, STATX_BASIC_STATS | STATX_BTIME, &status) != 0 || !S_ISREG(status.stx_mode)) {
    return std::nullopt;
  }
  const auto nanoseconds = [](const statx_timestamp& t) { return t.tv_sec * 1'000'000'000LL + t.tv_nsec; };
  FileStatus out;
  out.identity = {makedev(status.stx_dev_major, status.stx_dev_minor), status.stx_ino,
                  (status.stx_mask & STATX_BTIME) ? nanoseconds(status.stx_btime) : 0};
  out.bytes = static_cast<std::int64_t>(status.stx_size);
  out.modifiedAt = SystemTime(std::chrono::duration_cast<SystemTime::duration>(
      std::chrono::nanoseconds(nanoseconds(status.stx_mtime))));
  return out;
}

}  // namespace

std::optional<FileStatus> plainFileAt(const std::string& path) {
  return statusOf(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW);
}

std::optional<FileStatus> plainFileOn(int fd) { return statusOf(fd, "", AT_EMPTY_PATH); }

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

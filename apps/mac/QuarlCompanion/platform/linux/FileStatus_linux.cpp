#include "platform/FileStatus.h"

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

}  // namespace quarl

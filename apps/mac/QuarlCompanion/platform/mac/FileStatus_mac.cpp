#include "platform/FileStatus.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace quarl {

namespace {

std::int64_t nanoseconds(const timespec& t) { return t.tv_sec * 1'000'000'000LL + t.tv_nsec; }

std::optional<FileStatus> plainFile(const struct stat& status) {
  if (!S_ISREG(status.st_mode)) return std::nullopt;
  FileStatus out;
  out.identity = {static_cast<std::uint64_t>(status.st_dev), status.st_ino, nanoseconds(status.st_birthtimespec)};
  out.bytes = static_cast<std::int64_t>(status.st_size);
  out.modifiedAt = SystemTime(std::chrono::duration_cast<SystemTime::duration>(
      std::chrono::nanoseconds(nanoseconds(status.st_mtimespec))));
  return out;
}

}  // namespace

std::optional<FileStatus> plainFileAt(const std::string& path) {
  struct stat status {};
  if (::fstatat(AT_FDCWD, path.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return plainFile(status);
}

std::optional<FileStatus> plainFileOn(int fd) {
  struct stat status {};
  if (::fstat(fd, &status) != 0) return std::nullopt;
  return plainFile(status);
}

}  // namespace quarl

#include "FileClone.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace quarl {

bool cloneFile(const std::filesystem::path& from, const std::filesystem::path& to) {
  const int source = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (source < 0) return false;
  const int target = ::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (target < 0) {
    ::close(source);
    return false;
  }
  const bool cloned = ::ioctl(target, FICLONE, source) == 0;
  ::close(target);
  ::close(source);
  if (!cloned) ::unlink(to.c_str());
  return cloned;
}

}  // namespace quarl

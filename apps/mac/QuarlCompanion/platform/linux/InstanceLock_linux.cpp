#include "InstanceLock_linux.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace quarl {

std::unique_ptr<InstanceLock> InstanceLock::take(const std::filesystem::path& configDirectory, std::string& refusal) {
  std::error_code error;
  std::filesystem::create_directories(configDirectory, error);
  const auto path = configDirectory / "host.lock";
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) {
    refusal = "Quarl could not make its lock file " + path.string() + " (" + std::strerror(errno) + "), so it did not start.";
    return nullptr;
  }
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    ::close(fd);
    refusal = "Quarl is already running on this computer, so this copy did not start.";
    return nullptr;
  }
  return std::unique_ptr<InstanceLock>(new InstanceLock(fd));
}

InstanceLock::~InstanceLock() { ::close(fd_); }

}  // namespace quarl

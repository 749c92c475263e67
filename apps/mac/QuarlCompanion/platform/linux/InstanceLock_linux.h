#pragma once

#include <filesystem>
#include <memory>
#include <string>

namespace quarl {

// The one running host of a configuration folder: an exclusive lock on "host.lock" in it, held
// for as long as the process lives and let go by the system when it ends, however it ends. Two
// hosts of one account would present the same refresh token (the service then ends the session)
// and rewrite the same files.
class InstanceLock {
 public:
  // The lock; or none, with `refusal` set to the sentence that says why.
  static std::unique_ptr<InstanceLock> take(const std::filesystem::path& configDirectory, std::string& refusal);
  ~InstanceLock();
  InstanceLock(const InstanceLock&) = delete;
  InstanceLock& operator=(const InstanceLock&) = delete;

 private:
  explicit InstanceLock(int fd) : fd_(fd) {}
  int fd_;
};

}  // namespace quarl

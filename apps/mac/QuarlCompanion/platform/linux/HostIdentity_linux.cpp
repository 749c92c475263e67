#include <sys/utsname.h>
#include <unistd.h>

#include <array>

#include "platform/HostIdentity.h"

namespace quarl {

ClientIdentity hostIdentity() {
  std::array<char, 256> host{};
  if (::gethostname(host.data(), host.size() - 1) != 0) host[0] = '\0';
  utsname system{};
  std::string osVersion = "Linux";
  if (::uname(&system) == 0) osVersion = std::string(system.sysname) + " " + system.release;
  return ClientIdentity{"linux", QUARL_BUILD_NUMBER, QUARL_VERSION, host[0] ? host.data() : "Linux host",
                        std::move(osVersion)};
}

}  // namespace quarl

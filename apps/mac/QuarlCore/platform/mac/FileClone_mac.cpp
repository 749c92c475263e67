#include "FileClone.h"

#include <sys/clonefile.h>

namespace quarl {

bool cloneFile(const std::filesystem::path& from, const std::filesystem::path& to) {
  return ::clonefile(from.c_str(), to.c_str(), CLONE_NOFOLLOW) == 0;
}

}  // namespace quarl

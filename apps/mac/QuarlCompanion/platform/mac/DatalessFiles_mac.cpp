#include "DatalessFiles_mac.h"

#include <sys/resource.h>

namespace quarl {

void neverDownloadDatalessFiles() {
  ::setiopolicy_np(IOPOL_TYPE_VFS_MATERIALIZE_DATALESS_FILES, IOPOL_SCOPE_PROCESS, IOPOL_MATERIALIZE_DATALESS_FILES_OFF);
}

}  // namespace quarl

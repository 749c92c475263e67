#pragma once

#include "ClientIdentity.h"

namespace quarl {

// Who this companion is, as it tells the service: the platform, this build, and the
// machine's name and operating-system version.
ClientIdentity hostIdentity();

}  // namespace quarl

#include "StopHotKey_linux.h"

namespace quarl {

std::optional<std::string> UnavailableStopHotKey::registerKeys(std::function<void()>) {
  return "This computer has no stop keys for Quarl; run quarl-companion operator-stop to stop a run.";
}

}  // namespace quarl

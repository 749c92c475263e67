#include "IngestedRecently.h"

namespace quarl {

void IngestedRecently::forget(SystemTime before) {
  std::erase_if(handedOver_, [&](const auto& entry) { return entry.second < before; });
}

}  // namespace quarl

#pragma once

#include <map>
#include <string>

#include "Clock.h"

namespace quarl {

// The messages handed over lately, so that rows the cursor's overlap reads again are not
// handed over twice. Kept in memory only: after a restart the service's own de-duplication
// by message id is the guard.
class IngestedRecently {
 public:
  bool contains(const std::string& guid) const { return handedOver_.contains(guid); }
  void record(const std::string& guid, SystemTime at) { handedOver_[guid] = at; }
  void forget(SystemTime before);

 private:
  std::map<std::string, SystemTime> handedOver_;
};

}  // namespace quarl

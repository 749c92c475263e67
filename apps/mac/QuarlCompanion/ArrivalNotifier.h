#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/Notifications.h"

namespace quarl {

// Tells the owner when more is waiting for them on the service than when the heartbeat last
// said: a count that falls or stays says nothing. The first count heard after launch is
// measured against none waiting, since the dock badge starts empty too. Main executor only.
class ArrivalNotifier {
 public:
  explicit ArrivalNotifier(std::shared_ptr<Notifications> notifications);

  void heard(std::int64_t waiting);

  static std::string noticeBody(std::int64_t waiting);

 private:
  std::shared_ptr<Notifications> notifications_;
  std::int64_t lastHeard_ = 0;
};

}  // namespace quarl

#pragma once

#include <functional>

#include "platform/Notifications.h"

namespace quarl {

// The notification centre (UserNotifications). A notice is posted only while the owner allows
// notices; asking for that is the setup window's, at the owner's press.
class MacNotifications final : public Notifications {
 public:
  void post(const std::string& title, const std::string& body) override;
  // Asks the owner once to allow alerts, sounds and badges; `answered` gets whether they did,
  // on the main queue.
  static void askToAllow(std::function<void(bool allowed)> answered);
};

}  // namespace quarl

#pragma once

#include <string>

namespace quarl {

// Notices in the system's notification centre. Main executor only.
class Notifications {
 public:
  virtual ~Notifications() = default;
  // Shows one notice, once the owner has allowed notices; a notice not allowed is dropped.
  virtual void post(const std::string& title, const std::string& body) = 0;
};

}  // namespace quarl

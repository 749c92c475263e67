#include "ArrivalNotifier.h"

namespace quarl {

ArrivalNotifier::ArrivalNotifier(std::shared_ptr<Notifications> notifications)
    : notifications_(std::move(notifications)) {}

void ArrivalNotifier::heard(std::int64_t waiting) {
  const bool more = waiting > lastHeard_;
  lastHeard_ = waiting;
  if (more && notifications_) notifications_->post("Quarl", noticeBody(waiting));
}

std::string ArrivalNotifier::noticeBody(std::int64_t waiting) {
  if (waiting == 1) return "1 thing is waiting for you in Quarl.";
  return std::to_string(waiting) + " things are waiting for you in Quarl.";
}

}  // namespace quarl

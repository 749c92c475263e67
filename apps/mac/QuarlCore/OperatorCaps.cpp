#include "OperatorCaps.h"

#include <algorithm>

#include "OperatorSession.h"

namespace quarl {

namespace {

using NotReady = OperatorSession::NotReady;

std::string_view stateName(CapabilityState state) {
  switch (state) {
    case CapabilityState::granted: return "granted";
    case CapabilityState::off: return "off";
    case CapabilityState::unknown: return "unknown";
  }
  return "unknown";
}

// The blocker name of one reason, telling a permission that is off from one nobody could read.
std::string blockerName(NotReady reason, const OperatorCaps& caps) {
  const auto known = [](CapabilityState state, const char* off, const char* unknown) {
    return std::string(state == CapabilityState::unknown ? unknown : off);
  };
  switch (reason) {
    case NotReady::switchedOff: return "switchedOff";
    case NotReady::noAccessibility: return known(caps.accessibility, "accessibilityOff", "accessibilityUnknown");
    case NotReady::noScreenRecording:
      if (caps.osTooOld) return "osTooOld";
      return known(caps.screenRecording, "screenRecordingOff", "screenRecordingUnknown");
    case NotReady::signedOut: return "signedOut";
    case NotReady::lockedOrAway: return known(caps.unlockedAtScreen, "screenLocked", "screenLockUnknown");
    case NotReady::cannotPostEvents: return known(caps.postEvents, "cannotPostEvents", "postEventsUnknown");
    case NotReady::noFullDiskAccess: return known(caps.fullDiskAccess, "fullDiskAccessOff", "fullDiskAccessUnknown");
    case NotReady::displayAsleep: return "displayAsleep";
  }
  return "unknown";
}

}  // namespace

boost::json::object OperatorCaps::wire() const {
  return {{"switchOn", switchOn},
          {"accessibility", stateName(accessibility)},
          {"screenRecording", stateName(screenRecording)},
          {"postEvents", stateName(postEvents)},
          {"fullDiskAccess", stateName(fullDiskAccess)},
          {"folderConsent", folderConsent},
          {"unlockedAtScreen", stateName(unlockedAtScreen)},
          {"osTooOld", osTooOld},
          {"displays", displayCount},
          {"displaysAsleep", displaysAsleep},
          {"keepAwake", keepAwake}};
}

OperatorReadiness OperatorCaps::readiness(bool signedIn) const {
  const auto conditions = OperatorSession::Conditions::from(*this, signedIn);
  std::vector<NotReady> reasons;
  for (const auto klass : advertisedClasses) {
    for (const auto reason : OperatorSession::blockers(klass, conditions)) {
      if (std::find(reasons.begin(), reasons.end(), reason) == reasons.end()) reasons.push_back(reason);
    }
  }
  std::sort(reasons.begin(), reasons.end());
  OperatorReadiness readiness;
  readiness.displayCount = displayCount;
  for (const auto reason : reasons) readiness.missing.push_back(blockerName(reason, *this));
  return readiness;
}

}  // namespace quarl

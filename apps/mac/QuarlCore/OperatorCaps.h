#pragma once

#include <boost/json/object.hpp>

#include "QuarlLog.h"

namespace quarl {

// How a permission reader found one capability. Unknown counts as not granted everywhere.
enum class CapabilityState { granted, off, unknown };

// What this Mac lets the operator do at this moment, as the permission readers found it and
// the owner chose. The platform fills in what it can read; the switch and keep-awake are the
// owner's choices from the settings.
struct OperatorCaps {
  bool switchOn = false;
  CapabilityState accessibility = CapabilityState::unknown;
  CapabilityState screenRecording = CapabilityState::unknown;
  CapabilityState postEvents = CapabilityState::unknown;
  CapabilityState fullDiskAccess = CapabilityState::unknown;
  // The owner let Quarl into the usual folders one by one, instead of Full Disk Access.
  bool folderConsent = false;
  // The session is unlocked and on the console.
  CapabilityState unlockedAtScreen = CapabilityState::unknown;
  // The system is too old for the screenshots that looking needs.
  bool osTooOld = false;
  int displayCount = 0;
  bool displaysAsleep = false;
  bool keepAwake = false;

  // The heartbeat's "operator" object: one flat key per fact.
  boost::json::object wire() const;
  // What keeps any class of steps from running, by blocker name ("accessibilityOff",
  // "screenRecordingUnknown", "screenLocked", ...), for the readiness line.
  OperatorReadiness readiness(bool signedIn) const;
};

}  // namespace quarl

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "OperatorCaps.h"

namespace quarl {

// The setup window's steps, in the order the owner takes them: signing in, then each of the
// Mac's permissions the companion needs, then opening at login.
struct SetupStep {
  enum class Action { none, signIn, openPrivacyPane, openAtLogin };

  std::string title;
  std::string why;
  // Unknown where the system does not say without asking the owner.
  CapabilityState state = CapabilityState::unknown;
  std::string button;  // empty: the step has nothing to press
  Action action = Action::none;
  std::string privacyPane;  // for openPrivacyPane: its anchor under Privacy & Security
};

struct SetupFacts {
  bool signedIn = false;
  std::optional<std::string> pairingCode;  // the code to approve while a pairing runs
  bool canReadMessages = false;
  CapabilityState accessibility = CapabilityState::unknown;
  CapabilityState screenRecording = CapabilityState::unknown;
  bool opensAtLogin = false;
};

std::vector<SetupStep> setupSteps(const SetupFacts& facts);

}  // namespace quarl

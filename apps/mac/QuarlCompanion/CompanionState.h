#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Clock.h"

namespace quarl {

// Channel kinds as log lines and sentences name them: "imessage, sms".
std::string joinedChannels(const std::vector<std::string>& channels);

// Whether this Mac is signed in, carrying the text the interface shows for the session.
struct SignIn {
  std::optional<std::string> signedInAs;

  static SignIn signedIn(std::string text) { return {std::move(text)}; }
  static SignIn signedOut() { return {}; }
  bool isSignedIn() const { return signedInAs.has_value(); }
};

// The state every view of the companion shows. Written by the coordinator only; lives in
// memory and starts signed out with everything empty.
struct CompanionState {
  static constexpr std::size_t blockedReasonLimit = 200;

  SignIn signIn;
  bool canReadMessages = false;
  std::optional<std::string> blockedReason;
  std::optional<std::string> chatDbBlockedReason;
  std::vector<std::string> enabledChannels;
  std::optional<SystemTime> lastHeartbeatAt;
  std::optional<SystemTime> lastCaptureAt;
  std::int64_t skippedWithoutText = 0;
  std::vector<std::string> unconnectedChannels;
  bool whatsappLinked = false;  // the hosted WhatsApp Web page is linked to the owner's phone

  // The channels the heartbeat advertises: every enabled channel while signed in and able to
  // read Messages, else none. WhatsApp is thereby advertised only while Messages is readable.
  std::vector<std::string> advertisableChannels() const;
  // The blocked reason, else the Messages-database reason, cut to 200 UTF-16 units.
  std::optional<std::string> heartbeatBlockedReason() const;
  std::optional<std::string> unconnectedChannelWarning() const;
  // The menu's one-line status.
  std::string summary(SystemTime now) const;
};

}  // namespace quarl

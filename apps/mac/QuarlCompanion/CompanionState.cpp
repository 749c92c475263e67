#include "CompanionState.h"

#include "DateText.h"
#include "Utf16Text.h"

namespace quarl {
std::string joinedChannels(const std::vector<std::string>& channels) {
  std::string out;
  for (const auto& channel : channels) {
    if (!out.empty()) out += ", ";
    out += channel;
  }
  return out;
}
std::vector<std::string> CompanionState::advertisableChannels() const {
  if (!signIn.isSignedIn() || !canReadMessages) return {};
  return enabledChannels;
}

std::optional<std::string> CompanionState::heartbeatBlockedReason() const {
  const auto& reason = blockedReason ? blockedReason : chatDbBlockedReason;
  if (!reason) return std::nullopt;
  return utf16Prefix(*reason, blockedReasonLimit);
}

std::optional<std::string> CompanionState::unconnectedChannelWarning() const {
  if (unconnectedChannels.empty()) return std::nullopt;
  return "This Mac offers " + joinedChannels(unconnectedChannels) +
         ", but your account has no connected channel for it, so those messages are being dropped. "
         "Connect it in Settings.";
}

std::string CompanionState::summary(SystemTime now) const {
  if (!signIn.isSignedIn()) return "This Mac is not signed in to Quarl.";
  if (blockedReason) return *blockedReason;
  if (chatDbBlockedReason) return *chatDbBlockedReason;
  if (auto warning = unconnectedChannelWarning()) return *warning;
  if (!canReadMessages || enabledChannels.empty()) return "No channels switched on";
  if (!lastCaptureAt) return "Signed in — no messages read yet";
  return "Last read " + relativeDateText(*lastCaptureAt, now);
}

}  // namespace quarl

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "WhatsAppSessionState.h"

namespace quarl {

// What a tick knows of the hosted WhatsApp page.
struct WhatsAppStanding {
  std::optional<WhatsAppWeb::SessionState> settled;  // none: nothing has answered since the navigation
  std::optional<std::string> unavailable;            // why this computer cannot host the page
};

// The channels this Mac offers at one tick, and what the tick should say about WhatsApp.
struct ChannelOffer {
  std::vector<std::string> channels;
  bool whatsappLinked = false;
  std::optional<std::string> logLine;
  // When WhatsApp is not offered: the sentence for the blocked reason.
  std::optional<std::string> whatsappBlockedReason;
};

// Decides the channel list of a tick. `whatsapp` is none while the owner has not switched
// WhatsApp on; then it is simply not offered and nothing is said about it. A Mac that has
// hosted a linked session (`hostsSession`) keeps offering WhatsApp through every state but the
// QR code, because a heartbeat that leaves the channel out suspends it on the service.
ChannelOffer offeredChannels(bool canReadMessages, const std::optional<WhatsAppStanding>& whatsapp, bool hostsSession);

}  // namespace quarl

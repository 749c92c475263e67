#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quarl {

// What the hosted WhatsApp Web page has settled on.
struct WhatsAppSettledState {
  enum class Kind { linked, showingQrCode, downloading, notKnown, notReadable };
  Kind kind;
  std::string detail;  // for notReadable: what was last seen
};

// The channels this Mac offers at one tick, and what the tick should say about WhatsApp.
struct ChannelOffer {
  std::vector<std::string> channels;
  bool whatsappLinked = false;
  std::optional<std::string> logLine;
  // When WhatsApp is not offered: the sentence for the blocked reason.
  std::optional<std::string> whatsappBlockedReason;
};

// Decides the channel list of a tick. `whatsapp` is none when this Mac hosts no WhatsApp page
// at all; then WhatsApp is simply not offered and nothing is said about it. A Mac that has
// hosted a linked session (`hostsSession`) keeps offering WhatsApp through every state but the
// QR code, because a heartbeat that leaves the channel out suspends it on the service.
ChannelOffer offeredChannels(bool canReadMessages, const std::optional<WhatsAppSettledState>& whatsapp,
                             bool hostsSession);

}  // namespace quarl

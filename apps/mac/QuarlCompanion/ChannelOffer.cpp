#include "ChannelOffer.h"

namespace quarl {

namespace {

using Kind = WhatsAppWeb::SessionState::Kind;

// Why the channel is offered although the page is not linked.
std::string advertisedAnywayLine(const std::optional<WhatsAppWeb::SessionState>& settled) {
  if (!settled) {
    return "quarl: whatsapp web is still loading — advertising it anyway, because this Mac hosts a linked session and "
           "a heartbeat that omitted it would suspend the channel";
  }
  if (settled->kind == Kind::syncing) {
    return "quarl: whatsapp web is downloading this account's messages — advertising it anyway. A sync is not an "
           "unlinked phone, and omitting the channel here is what dropped it out of the heartbeat until relaunch.";
  }
  return "quarl: whatsapp web is not readable — advertising it anyway, because this Mac hosts a linked session and an "
         "unreadable page is not evidence a phone was unlinked. Last seen: " +
         WhatsAppWeb::describe(*settled);
}

std::string notOfferedCause(const std::optional<WhatsAppWeb::SessionState>& settled) {
  if (!settled) return "the page is still loading";
  switch (settled->kind) {
    case Kind::needsLink: return "WhatsApp Web is showing its QR code, so the phone is not linked";
    case Kind::syncing: return "WhatsApp Web is still downloading this account's messages";
    case Kind::linked:
    case Kind::unrecognised: break;
  }
  return settled->whatWasThere;
}

}  // namespace

ChannelOffer offeredChannels(bool canReadMessages, const std::optional<WhatsAppStanding>& whatsapp, bool hostsSession) {
  ChannelOffer offer;
  if (canReadMessages) offer.channels = {"imessage", "sms"};
  if (!whatsapp) return offer;

  const auto& settled = whatsapp->settled;
  std::string cause;
  if (whatsapp->unavailable) {
    cause = *whatsapp->unavailable;
  } else if (WhatsAppWeb::shouldAdvertise(settled, hostsSession)) {
    offer.whatsappLinked = settled && WhatsAppWeb::isSettled(*settled);
    if (!offer.whatsappLinked) offer.logLine = advertisedAnywayLine(settled);
    offer.channels.push_back("whatsapp");
    return offer;
  } else {
    cause = notOfferedCause(settled);
  }
  offer.whatsappBlockedReason =
      "WhatsApp is not being offered by this Mac: " + cause + ". Everything else on this Mac is unaffected.";
  return offer;
}

}  // namespace quarl

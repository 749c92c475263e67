#include "ChannelOffer.h"

namespace quarl {

ChannelOffer offeredChannels(bool canReadMessages, const std::optional<WhatsAppSettledState>& whatsapp,
                             bool hostsSession) {
  ChannelOffer offer;
  if (canReadMessages) offer.channels = {"imessage", "sms"};
  if (!whatsapp) return offer;

  using Kind = WhatsAppSettledState::Kind;
  std::string cause;
  switch (whatsapp->kind) {
    case Kind::linked:
      offer.whatsappLinked = true;
      offer.channels.push_back("whatsapp");
      return offer;
    case Kind::showingQrCode:
      cause = "WhatsApp Web is showing its QR code, so the phone is not linked";
      break;
    case Kind::downloading:
      if (hostsSession) {
        offer.logLine =
            "quarl: whatsapp web is downloading this account's messages — advertising it anyway. A sync is not an "
            "unlinked phone, and omitting the channel here is what dropped it out of the heartbeat until relaunch.";
      }
      cause = "WhatsApp Web is still downloading this account's messages";
      break;
    case Kind::notKnown:
      if (hostsSession) {
        offer.logLine =
            "quarl: whatsapp web is still loading — advertising it anyway, because this Mac hosts a linked session "
            "and a heartbeat that omitted it would suspend the channel";
      }
      cause = "the page is still loading";
      break;
    case Kind::notReadable:
      if (hostsSession) {
        offer.logLine =
            "quarl: whatsapp web is not readable — advertising it anyway, because this Mac hosts a linked session "
            "and an unreadable page is not evidence a phone was unlinked. Last seen: " +
            whatsapp->detail;
      }
      cause = whatsapp->detail;
      break;
  }
  if (offer.logLine) {
    offer.channels.push_back("whatsapp");
    return offer;
  }
  offer.whatsappBlockedReason =
      "WhatsApp is not being offered by this Mac: " + cause + ". Everything else on this Mac is unaffected.";
  return offer;
}

}  // namespace quarl

#include "ChannelOffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarl {
namespace {

using Kind = WhatsAppSettledState::Kind;
using Channels = std::vector<std::string>;

TEST(ChannelOffer, MessagesChannelsFollowTheStoreAndWhatsAppFollowsItsTable) {
  const auto page = [](Kind kind, std::string detail = "") { return std::optional(WhatsAppSettledState{kind, detail}); };
  const Channels messages{"imessage", "sms"}, all{"imessage", "sms", "whatsapp"};
  // The log line is given in part; the cause is what the blocked reason names.
  struct Row { bool canRead; std::optional<WhatsAppSettledState> whatsapp; bool hosts; Channels channels; const char* line; const char* cause; };
  for (const auto& [canRead, whatsapp, hosts, channels, line, cause] : std::vector<Row>{
           {true, std::nullopt, true, messages, nullptr, nullptr},
           {false, std::nullopt, true, {}, nullptr, nullptr},
           {true, page(Kind::linked), false, all, nullptr, nullptr},
           // The QR code means no linked phone, whatever this Mac hosted before.
           {true, page(Kind::showingQrCode), true, messages, nullptr, "WhatsApp Web is showing its QR code, so the phone is not linked"},
           {true, page(Kind::downloading), true, all, "web is downloading this account's messages — advertising it anyway", nullptr},
           {true, page(Kind::notKnown), true, all, "web is still loading — advertising it anyway", nullptr},
           {true, page(Kind::notReadable, "a blank page"), true, all, "not readable — advertising it anyway, because this Mac "
            "hosts a linked session and an unreadable page is not evidence a phone was unlinked. Last seen: a blank page", nullptr},
           {true, page(Kind::downloading), false, messages, nullptr, "WhatsApp Web is still downloading this account's messages"},
           {true, page(Kind::notKnown), false, messages, nullptr, "the page is still loading"},
           {true, page(Kind::notReadable, "a blank page"), false, messages, nullptr, "a blank page"}}) {
    const auto offer = offeredChannels(canRead, whatsapp, hosts);
    SCOPED_TRACE(::testing::Message() << "page " << (whatsapp ? static_cast<int>(whatsapp->kind) : -1) << ", hosted " << hosts);
    EXPECT_EQ(offer.channels, channels);
    EXPECT_EQ(offer.whatsappLinked, whatsapp && whatsapp->kind == Kind::linked);
    EXPECT_EQ(offer.logLine.has_value(), line != nullptr);
    if (line && offer.logLine) {
      EXPECT_THAT(*offer.logLine, ::testing::HasSubstr(line));
    }
    EXPECT_EQ(offer.whatsappBlockedReason, cause ? std::optional("WhatsApp is not being offered by this Mac: " + std::string(cause) +
                                                                 ". Everything else on this Mac is unaffected.") : std::nullopt);
  }
}

}  // namespace
}  // namespace quarl

#include "ChannelOffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarl {
namespace {

using WhatsAppWeb::SessionState;
using Channels = std::vector<std::string>;

TEST(ChannelOffer, MessagesChannelsFollowTheStoreAndWhatsAppFollowsItsTable) {
  const auto page = [](std::optional<SessionState> settled) { return std::optional(WhatsAppStanding{settled, std::nullopt}); };
  const auto unreadable = page(SessionState::unrecognised("a blank page"));
  const auto noDisplay = std::optional(WhatsAppStanding{SessionState::linked(), "this computer has no display"});
  const Channels messages{"imessage", "sms"}, all{"imessage", "sms", "whatsapp"};
  // The log line is given in part; the cause is what the blocked reason names.
  struct Row { bool canRead; std::optional<WhatsAppStanding> whatsapp; bool hosts; Channels channels; const char* line; const char* cause; };
  for (const auto& [canRead, whatsapp, hosts, channels, line, cause] : std::vector<Row>{
           {true, std::nullopt, true, messages, nullptr, nullptr},
           {false, std::nullopt, true, {}, nullptr, nullptr},
           {true, page(SessionState::linked()), false, all, nullptr, nullptr},
           // The QR code means no linked phone, whatever this Mac hosted before.
           {true, page(SessionState::needsLink()), true, messages, nullptr, "WhatsApp Web is showing its QR code, so the phone is not linked"},
           {true, page(SessionState::syncing()), true, all, "web is downloading this account's messages — advertising it anyway", nullptr},
           {true, page(std::nullopt), true, all, "web is still loading — advertising it anyway", nullptr},
           {true, unreadable, true, all, "not readable — advertising it anyway, because this Mac "
            "hosts a linked session and an unreadable page is not evidence a phone was unlinked. Last seen: unrecognised — a blank page", nullptr},
           {true, page(SessionState::syncing()), false, messages, nullptr, "WhatsApp Web is still downloading this account's messages"},
           {true, page(std::nullopt), false, messages, nullptr, "the page is still loading"},
           {true, unreadable, false, messages, nullptr, "a blank page"},
           // A computer that cannot show the page offers nothing it cannot serve.
           {true, noDisplay, true, messages, nullptr, "this computer has no display"}}) {
    const auto offer = offeredChannels(canRead, whatsapp, hosts);
    SCOPED_TRACE(::testing::Message() << "page " << (whatsapp && whatsapp->settled ? WhatsAppWeb::describe(*whatsapp->settled) : "-")
                                      << ", hosted " << hosts);
    EXPECT_EQ(offer.channels, channels);
    EXPECT_EQ(offer.whatsappLinked, channels == all && !line);
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

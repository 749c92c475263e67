#include "ChannelOffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarl {
namespace {

using Kind = WhatsAppSettledState::Kind;
using ::testing::HasSubstr;
using Channels = std::vector<std::string>;

TEST(ChannelOffer, MessagesChannelsFollowTheStoreAndWhatsAppFollowsItsTable) {
  EXPECT_EQ(offeredChannels(true, std::nullopt, true).channels, (Channels{"imessage", "sms"}));
  EXPECT_TRUE(offeredChannels(false, std::nullopt, true).channels.empty());
  EXPECT_EQ(offeredChannels(false, std::nullopt, true).whatsappBlockedReason, std::nullopt);

  const auto linked = offeredChannels(true, WhatsAppSettledState{Kind::linked, ""}, false);
  EXPECT_EQ(linked.channels, (Channels{"imessage", "sms", "whatsapp"}));
  EXPECT_TRUE(linked.whatsappLinked);
  EXPECT_EQ(linked.logLine, std::nullopt);

  // The QR code means no linked phone, whatever this Mac hosted before.
  const auto qr = offeredChannels(true, WhatsAppSettledState{Kind::showingQrCode, ""}, true);
  EXPECT_EQ(qr.channels, (Channels{"imessage", "sms"}));
  EXPECT_EQ(qr.whatsappBlockedReason,
            "WhatsApp is not being offered by this Mac: WhatsApp Web is showing its QR code, so the phone is not "
            "linked. Everything else on this Mac is unaffected.");

  for (const auto kind : {Kind::downloading, Kind::notKnown, Kind::notReadable}) {
    const auto hosted = offeredChannels(true, WhatsAppSettledState{kind, "a blank page"}, true);
    EXPECT_EQ(hosted.channels, (Channels{"imessage", "sms", "whatsapp"}));
    ASSERT_TRUE(hosted.logLine);
    EXPECT_THAT(*hosted.logLine, HasSubstr("advertising it anyway"));
    EXPECT_EQ(hosted.whatsappBlockedReason, std::nullopt);

    const auto never = offeredChannels(true, WhatsAppSettledState{kind, "a blank page"}, false);
    EXPECT_EQ(never.channels, (Channels{"imessage", "sms"}));
    EXPECT_EQ(never.logLine, std::nullopt);
    EXPECT_TRUE(never.whatsappBlockedReason);
  }
  EXPECT_THAT(*offeredChannels(true, WhatsAppSettledState{Kind::notReadable, "a blank page"}, true).logLine,
              HasSubstr("Last seen: a blank page"));
  EXPECT_EQ(*offeredChannels(true, WhatsAppSettledState{Kind::notKnown, ""}, false).whatsappBlockedReason,
            "WhatsApp is not being offered by this Mac: the page is still loading. Everything else on this Mac is "
            "unaffected.");
}

}  // namespace
}  // namespace quarl

#include "CompanionState.h"

#include <gtest/gtest.h>

#include "Utf16Text.h"

namespace quarl {
namespace {

using namespace std::chrono_literals;

CompanionState signedInReading() {
  CompanionState state;
  state.signIn = SignIn::signedIn("dev-1");
  state.canReadMessages = true;
  state.enabledChannels = {"imessage", "sms"};
  return state;
}

TEST(CompanionState, ChannelsAreAdvertisedOnlyWhileSignedInAndReadingMessages) {
  auto state = signedInReading();
  state.enabledChannels.push_back("whatsapp");
  EXPECT_EQ(state.advertisableChannels(), (std::vector<std::string>{"imessage", "sms", "whatsapp"}));
  state.canReadMessages = false;
  EXPECT_TRUE(state.advertisableChannels().empty());
  state.canReadMessages = true;
  state.signIn = SignIn::signedOut();
  EXPECT_TRUE(state.advertisableChannels().empty());
}

TEST(CompanionState, TheHeartbeatReasonIsCutAt200UnitsWhileTheSummaryShowsItWhole) {
  auto state = signedInReading();
  EXPECT_EQ(state.heartbeatBlockedReason(), std::nullopt);

  state.chatDbBlockedReason = "Messages cannot be read.";
  EXPECT_EQ(state.heartbeatBlockedReason(), "Messages cannot be read.");

  // 199 units, then a character of two units that would end past the limit.
  const std::string longReason = std::string(199, 'x') + "😀" + std::string(300, 'y');
  state.blockedReason = longReason;
  const auto cut = state.heartbeatBlockedReason();
  ASSERT_TRUE(cut);
  EXPECT_EQ(*cut, std::string(199, 'x'));
  EXPECT_TRUE(isValidUtf8(*cut));

  state.blockedReason = std::string(500, 'z');
  EXPECT_EQ(utf16Length(*state.heartbeatBlockedReason()), 200u);
  EXPECT_EQ(state.summary(SystemTime{}), std::string(500, 'z'));
}

TEST(CompanionState, TheSummaryTakesTheFirstThingThatApplies) {
  const SystemTime now(1700000000s);
  CompanionState signedOut;
  EXPECT_EQ(signedOut.summary(now), "This Mac is not signed in to Quarl.");

  auto state = signedInReading();
  EXPECT_EQ(state.summary(now), "Signed in — no messages read yet");
  state.lastCaptureAt = now - 5min;
  EXPECT_EQ(state.summary(now), "Last read 5 minutes ago");

  state.unconnectedChannels = {"sms"};
  EXPECT_EQ(state.summary(now), *state.unconnectedChannelWarning());
  EXPECT_NE(state.summary(now).find("sms"), std::string::npos);

  state.chatDbBlockedReason = "The Messages database changed shape.";
  EXPECT_EQ(state.summary(now), "The Messages database changed shape.");
  state.blockedReason = "Quarl needs Full Disk Access.";
  EXPECT_EQ(state.summary(now), "Quarl needs Full Disk Access.");

  auto quiet = signedInReading();
  quiet.enabledChannels.clear();
  EXPECT_EQ(quiet.summary(now), "No channels switched on");
  quiet = signedInReading();
  quiet.canReadMessages = false;
  EXPECT_EQ(quiet.summary(now), "No channels switched on");
}

}  // namespace
}  // namespace quarl

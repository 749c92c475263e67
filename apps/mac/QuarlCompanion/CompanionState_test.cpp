#include "CompanionState.h"

#include <gtest/gtest.h>

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

TEST(CompanionState, TheSummaryTakesTheFirstThingThatAppliesAndTheHeartbeatGetsTheReasonCutAt200Units) {
  const SystemTime now(1700000000s);
  auto state = signedInReading();
  EXPECT_EQ(state.advertisableChannels(), (std::vector<std::string>{"imessage", "sms"}));
  EXPECT_EQ(state.summary(now), "Signed in — no messages read yet");
  EXPECT_EQ(state.heartbeatBlockedReason(), std::nullopt);
  state.lastCaptureAt = now - 5min;
  EXPECT_EQ(state.summary(now), "Last read 5 minutes ago");
  state.unconnectedChannels = {"sms"};
  EXPECT_EQ(state.summary(now).find("This Mac offers sms, but your account has no connected channel"), 0u);
  state.chatDbBlockedReason = "The Messages database changed shape.";
  EXPECT_EQ(state.summary(now), "The Messages database changed shape.");
  EXPECT_EQ(state.heartbeatBlockedReason(), "The Messages database changed shape.");
  // 199 units, then a character of two units that would end past the limit.
  state.blockedReason = std::string(199, 'x') + "😀" + std::string(300, 'y');
  EXPECT_EQ(state.heartbeatBlockedReason(), std::string(199, 'x'));
  state.blockedReason = std::string(500, 'z');
  EXPECT_EQ(state.heartbeatBlockedReason(), std::string(200, 'z'));
  EXPECT_EQ(state.summary(now), std::string(500, 'z')) << "the menu shows it whole";
  state.signIn = SignIn::signedOut();
  EXPECT_EQ(state.summary(now), "This Mac is not signed in to Quarl.");
  EXPECT_TRUE(state.advertisableChannels().empty());

  // Channels are advertised only while Messages can be read.
  state = signedInReading();
  state.canReadMessages = false;
  EXPECT_TRUE(state.advertisableChannels().empty());
  EXPECT_EQ(state.summary(now), "No channels switched on");
  state = signedInReading();
  state.enabledChannels.clear();
  EXPECT_EQ(state.summary(now), "No channels switched on");
}

}  // namespace
}  // namespace quarl

#include "OperatorSession.h"

#include <gtest/gtest.h>

#include "OperatorBackoff.h"

namespace quarl {
namespace {

using Conditions = OperatorSession::Conditions;

Conditions allGranted() { return {true, true, true, true, true, true, true, true, false, false}; }

TEST(OperatorBackoff, WaitsGrowWithFailuresAndTheServicesAnswer) {
  EXPECT_DOUBLE_EQ(OperatorBackoff::delay(5, 500, 0.5), 16);
  EXPECT_DOUBLE_EQ(OperatorBackoff::delay(9, 403, 0.0), 60);
  EXPECT_DOUBLE_EQ(OperatorBackoff::delay(1, 429, 0.0), 30) << "a 429 waits at least the cap";
  EXPECT_DOUBLE_EQ(OperatorBackoff::delay(1, std::nullopt, 0.25), 0.75);
  EXPECT_DOUBLE_EQ(OperatorBackoff::delay(2, 500, 0.0), 1.5);
  EXPECT_DOUBLE_EQ(OperatorBackoff::delay(20, 500, 0.999999), 30) << "never past the cap";
  EXPECT_DOUBLE_EQ(OperatorBackoff::delay(1, 500, 7.0), 0.5 + 0.999999) << "random is clamped";
}

TEST(OperatorSession, StoppedRunsStayStoppedAndEachStepIsAdmittedOrToldWhyNot) {
  OperatorSession session;
  EXPECT_TRUE(session.begin("run-1"));
  EXPECT_EQ(session.admit("run-1", MacCapabilityClass::act, true, allGranted()), std::nullopt);
  EXPECT_EQ(session.admit("run-1", MacCapabilityClass::act, false, allGranted()),
            "The “Quarl is operating this Mac” bar was not on screen, so nothing was done.");
  EXPECT_EQ(session.stop(), "run-1");
  EXPECT_EQ(session.liveRunId(), std::nullopt);
  EXPECT_FALSE(session.begin("run-1")) << "a stopped run is never begun again";
  EXPECT_TRUE(session.begin("run-2"));
  EXPECT_EQ(session.admit("run-1", MacCapabilityClass::files, true, allGranted()),
            "You stopped Quarl on the Mac, so this step did not run.");
  session.ended("run-2");
  EXPECT_EQ(session.stop(), std::nullopt) << "nothing is live once the service ended it";
  EXPECT_TRUE(session.begin("run-2")) << "a run the service ended was not stopped here";
}

TEST(OperatorSession, ClassesAreReadyOrRefusedByWhatTheyNeedAndTheReadinessLineNamesEachBlockerOnce) {
  auto conditions = allGranted();
  EXPECT_EQ(OperatorSession::can(conditions), (std::vector<std::string>{"files", "screen", "act", "consequential"}));
  conditions.unlockedAtScreen = false;
  EXPECT_EQ(OperatorSession::can(conditions), std::vector<std::string>{"files"}) << "a locked Mac still finds files";

  conditions = allGranted();
  conditions.displayAsleep = true;
  EXPECT_EQ(OperatorSession::blockers(MacCapabilityClass::act, conditions),
            std::vector{OperatorSession::NotReady::displayAsleep});
  conditions.keepAwake = true;
  EXPECT_TRUE(OperatorSession::blockers(MacCapabilityClass::act, conditions).empty()) << "the link wakes the display";

  conditions = allGranted();
  conditions.accessibility = conditions.screenRecording = false;
  EXPECT_TRUE(OperatorSession::blockers(MacCapabilityClass::files, conditions).empty());
  EXPECT_EQ(OperatorSession::refusalSentence(MacCapabilityClass::unadvertised, conditions),
            "Accessibility and Screen Recording are off for Quarl on the Mac, so nothing was done.");
  conditions.switchOn = false;
  EXPECT_FALSE(OperatorSession::mayPoll(conditions));

  // What the Mac reports, with Accessibility and Full Disk Access unknown: both count as off.
  OperatorCaps caps{.switchOn = true, .screenRecording = CapabilityState::off, .postEvents = CapabilityState::granted,
                    .unlockedAtScreen = CapabilityState::granted, .displayCount = 2, .displaysAsleep = true};
  conditions = Conditions::from(caps, true);
  EXPECT_TRUE(OperatorSession::can(conditions).empty());
  EXPECT_EQ(OperatorSession::refusalSentence(MacCapabilityClass::files, conditions),
            "Full Disk Access is off for Quarl on the Mac, so nothing was done.");
  EXPECT_EQ(QuarlLog::operatorLine(caps.readiness(true)),
            "operator readiness — not ready, accessibilityUnknown, screenRecordingOff, fullDiskAccessUnknown, "
            "displayAsleep, 2 displays");

  caps.folderConsent = caps.keepAwake = caps.osTooOld = true;
  caps.screenRecording = CapabilityState::granted;
  conditions = Conditions::from(caps, true);
  EXPECT_EQ(OperatorSession::can(conditions), std::vector<std::string>{"files"}) << "folders consented one by one";
  EXPECT_EQ(caps.readiness(false).missing, (std::vector<std::string>{"accessibilityUnknown", "osTooOld", "signedOut"}));

  caps.accessibility = CapabilityState::granted;
  caps.osTooOld = false;
  EXPECT_TRUE(caps.readiness(true).missing.empty()) << "folder consent stands in for Full Disk Access";
}

}  // namespace
}  // namespace quarl

#include "OperatorSession.h"

#include <gtest/gtest.h>

#include "OperatorBackoff.h"

namespace quarl {
namespace {

using Conditions = OperatorSession::Conditions;

Conditions allGranted() { return {true, true, true, true, true, true, true, true, false, false}; }

TEST(OperatorBackoff, WaitsGrowWithFailuresAndTheServicesAnswer) {
  EXPECT_DOUBLE_EQ(OperatorBackoff::delay(5, 500, 0.5), 16);
  EXPECT_DOUBLE_EQ(OperatorBackoff::delay(5, 429, 0.5), 30);
  EXPECT_DOUBLE_EQ(OperatorBackoff::delay(1, 404, 0.5), 60);
  EXPECT_DOUBLE_EQ(OperatorBackoff::delay(9, 403, 0.0), 60);
  EXPECT_DOUBLE_EQ(OperatorBackoff::delay(1, std::nullopt, 0.25), 0.75);
  EXPECT_DOUBLE_EQ(OperatorBackoff::delay(2, 500, 0.0), 1.5);
  EXPECT_DOUBLE_EQ(OperatorBackoff::delay(20, 500, 0.999999), 30) << "never past the cap";
  EXPECT_DOUBLE_EQ(OperatorBackoff::delay(1, 500, 7.0), 0.5 + 0.999999) << "random is clamped";
}

TEST(OperatorSession, StoppedRunsStayStoppedAndEachStepIsAdmittedOrToldWhyNot) {
  OperatorSession session;
  const auto granted = allGranted();
  EXPECT_TRUE(session.begin("run-1"));
  EXPECT_EQ(session.admit("run-1", MacCapabilityClass::act, true, granted), std::nullopt);
  EXPECT_EQ(session.admit("run-1", MacCapabilityClass::act, false, granted),
            "The “Quarl is operating this Mac” bar was not on screen, so nothing was done.");
  EXPECT_EQ(session.stop(), "run-1");
  EXPECT_EQ(session.liveRunId(), std::nullopt);
  EXPECT_FALSE(session.begin("run-1")) << "a stopped run is never begun again";
  EXPECT_TRUE(session.begin("run-2"));
  EXPECT_EQ(session.admit("run-1", MacCapabilityClass::files, true, granted),
            "You stopped Quarl on the Mac, so this step did not run.");
  session.ended("run-2");
  EXPECT_EQ(session.liveRunId(), std::nullopt);
  EXPECT_EQ(session.stop(), std::nullopt);
  EXPECT_TRUE(session.begin("run-2")) << "a run the service ended was not stopped here";
}

TEST(OperatorSession, ClassesAreReadyOrRefusedByWhatTheyNeed) {
  using NotReady = OperatorSession::NotReady;
  auto conditions = allGranted();
  EXPECT_EQ(OperatorSession::can(conditions), (std::vector<std::string>{"files", "screen", "act", "consequential"}));
  conditions.unlockedAtScreen = false;
  EXPECT_EQ(OperatorSession::can(conditions), std::vector<std::string>{"files"}) << "a locked Mac still finds files";

  conditions = allGranted();
  conditions.displayAsleep = true;
  EXPECT_EQ(OperatorSession::blockers(MacCapabilityClass::act, conditions), std::vector<NotReady>{NotReady::displayAsleep});
  conditions.keepAwake = true;
  EXPECT_TRUE(OperatorSession::blockers(MacCapabilityClass::act, conditions).empty()) << "the link wakes the display";

  conditions = allGranted();
  conditions.accessibility = false;
  conditions.screenRecording = false;
  EXPECT_TRUE(OperatorSession::blockers(MacCapabilityClass::files, conditions).empty());
  EXPECT_EQ(OperatorSession::refusalSentence(MacCapabilityClass::unadvertised, conditions),
            "Accessibility and Screen Recording are off for Quarl on the Mac, so nothing was done.");
  conditions.switchOn = false;
  EXPECT_FALSE(OperatorSession::mayPoll(conditions));
  EXPECT_TRUE(OperatorSession::mayPoll(allGranted()));
}

}  // namespace
}  // namespace quarl

namespace quarl {
namespace {

TEST(OperatorCaps, WhatIsUnknownCountsAsOffAndTheReadinessLineNamesEachBlockerOnce) {
  OperatorCaps caps;
  caps.switchOn = true;
  caps.accessibility = CapabilityState::unknown;
  caps.screenRecording = CapabilityState::off;
  caps.postEvents = CapabilityState::granted;
  caps.fullDiskAccess = CapabilityState::unknown;
  caps.unlockedAtScreen = CapabilityState::granted;
  caps.displayCount = 2;
  caps.displaysAsleep = true;

  auto conditions = OperatorSession::Conditions::from(caps, true);
  EXPECT_FALSE(conditions.accessibility);
  EXPECT_FALSE(conditions.fullDiskAccess);
  EXPECT_TRUE(OperatorSession::can(conditions).empty());
  EXPECT_EQ(OperatorSession::refusalSentence(MacCapabilityClass::files, conditions),
            "Full Disk Access is off for Quarl on the Mac, so nothing was done.");
  EXPECT_EQ(QuarlLog::operatorLine(caps.readiness(true)),
            "operator readiness — not ready, accessibilityUnknown, screenRecordingOff, fullDiskAccessUnknown, "
            "displayAsleep, 2 displays");

  caps.folderConsent = true;
  caps.keepAwake = true;
  caps.screenRecording = CapabilityState::granted;
  caps.osTooOld = true;
  conditions = OperatorSession::Conditions::from(caps, true);
  EXPECT_EQ(OperatorSession::can(conditions), std::vector<std::string>{"files"}) << "folders consented one by one";
  EXPECT_EQ(caps.readiness(true).missing, (std::vector<std::string>{"accessibilityUnknown", "osTooOld"}));
  EXPECT_EQ(caps.readiness(false).missing,
            (std::vector<std::string>{"accessibilityUnknown", "osTooOld", "signedOut"}));

  caps.accessibility = CapabilityState::granted;
  caps.osTooOld = false;
  caps.displayCount = 1;
  EXPECT_EQ(QuarlLog::operatorLine(caps.readiness(true)), "operator readiness — ready, 1 display");
}

}  // namespace
}  // namespace quarl

#include "QuarlLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../tests/support/CapturingLogSink.h"

namespace quarl {
namespace {

using ::testing::ElementsAre;

TEST(QuarlLog, LinesReadAsWholeSentencesWithPrivateValuesHiddenAndEventsThatAreOffUnwritten) {
  EXPECT_EQ(QuarlLog::operatorSwitchLine(false), "operator switch off");
  EXPECT_EQ(QuarlLog::operatorSwitchLine(true), "operator switch on");
  EXPECT_EQ(QuarlLog::operatorStepLine("pressed Save", 12), "operator step pressed Save in 12 ms");
  EXPECT_EQ(QuarlLog::operatorLine({{}, 2}), "operator readiness — ready, 2 displays");
  EXPECT_EQ(QuarlLog::operatorLine({{"accessibilityOff", "screenLocked"}, 1}),
            "operator readiness — not ready, accessibilityOff, screenLocked, 1 display");

  auto sink = testing::CapturingLogSink::installed();
  QuarlLog::updateAvailable("2.1", "77");
  QuarlLog::relayJobFailed("job-9", "Messages did not answer");
  QuarlLog::messageEvents({MessageEventsNote::Kind::batchRefused, "secret body"});
  QuarlLog::operatorDisplayWake(true, false);
  QuarlLog::operatorStopReported("sent", 204);
  EXPECT_THAT(sink->lines(), ElementsAre("update available — <private> (build <private>)",
                                         "relay job job-9 failed — Messages did not answer",
                                         "message events batch refused — <private>",
                                         "operator display wake declared true, awake false",
                                         "operator stop report sent, status 204"));
  const auto events = sink->events();
  EXPECT_EQ(events[0].render(true), "update available — 2.1 (build 77)");
  EXPECT_EQ(events[1].category, LogCategory::relay);
  EXPECT_EQ(events[1].level, LogLevel::error);
  EXPECT_EQ(events[2].level, LogLevel::error);
  EXPECT_EQ(logCategoryName(events[3].category), "operator");

  sink = testing::CapturingLogSink::installed(/*standardLevelOn=*/false);
  QuarlLog::operatorSwitch(true);
  QuarlLog::say("quarl: heartbeat ok, advertising nothing");
  QuarlLog::updateCheckFailed("timed out");
  EXPECT_THAT(sink->lines(), ElementsAre("update check failed — <private>"));
  QuarlLog::install(nullptr);
}

}  // namespace
}  // namespace quarl

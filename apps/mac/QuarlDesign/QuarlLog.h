#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "LogSink.h"

namespace quarl {

// How a message-events pass is summed up in the capture log.
struct MessageEventsNote {
  enum class Kind { summary, failedPass, unobservable, readFailed, batchRefused };
  Kind kind;
  std::string text;
};

// What the operator readiness line names: the missing capabilities, by their blocker names
// ("accessibilityOff", "screenLocked", ...), and how many displays the Mac has.
struct OperatorReadiness {
  std::vector<std::string> missing;
  int displayCount = 0;
};

// The companion's log, one function per event. Each checks first whether its level is on, so
// an event that is off costs no formatting. Values are public or private exactly as the event
// says; the sink decides how a private value is shown.
namespace QuarlLog {

// Installs the sink every line goes to; until then lines are dropped.
void install(std::shared_ptr<LogSink> sink);

// A narrative line, which begins "quarl: " and is plain text.
void say(std::string_view line);
// A narrative line with private runs.
void say(std::vector<LogPiece> pieces);

void captureLine(std::string_view line);
void messageEvents(const MessageEventsNote& note);
void relayJobFailed(std::string_view jobId, std::string_view diagnostic);
void replyService(std::string_view jobId, std::string_view channelKind, std::string_view service,
                  std::string_view why);
void updatesNotConfigured();
void updateChecksOn(std::string_view feed);
void updaterDidNotStart(std::string_view reason);
void updateCheckWithoutFeed();
void updateCheckFoundNothingNewer();
void updateCheckFailed(std::string_view reason);
void updateAvailable(std::string_view version, std::string_view build);
void operatorReadinessChanged(const OperatorReadiness& readiness);
void operatorStep(std::string_view outcome, std::int64_t milliseconds);
void operatorRunEnded(std::string_view by);
void operatorPollFailed(long status);
void operatorStopReported(std::string_view report, long status);
void operatorSwitch(bool on);
void operatorKeepAwake(std::string_view reason);
void operatorDisplayWake(bool declared, bool awake);
void nudgeNoticePosted(bool allowed);

std::string operatorSwitchLine(bool on);
std::string operatorStepLine(std::string_view outcome, std::int64_t milliseconds);
std::string operatorLine(const OperatorReadiness& readiness);

}  // namespace QuarlLog
}  // namespace quarl

#include "QuarlLog.h"

#include <mutex>
#include <utility>

namespace quarl {

std::string_view logCategoryName(LogCategory category) {
  switch (category) {
    case LogCategory::narrative: return "companion";
    case LogCategory::capture: return "capture";
    case LogCategory::relay: return "relay";
    case LogCategory::updates: return "updates";
    case LogCategory::operating: return "operator";
  }
  return "companion";
}

std::string LogEvent::render(bool showPrivate) const {
  std::string line;
  for (const auto& piece : pieces) {
    line += piece.isPrivate && !showPrivate ? std::string_view("<private>") : std::string_view(piece.text);
  }
  return line;
}

namespace QuarlLog {
namespace {

std::mutex sinkMutex;
std::shared_ptr<LogSink> installedSink;

std::shared_ptr<LogSink> currentSink() {
  std::lock_guard lock(sinkMutex);
  return installedSink;
}

LogPiece shown(std::string_view text) { return {std::string(text), false}; }
LogPiece hidden(std::string_view text) { return {std::string(text), true}; }
std::string_view yesNo(bool value) { return value ? "true" : "false"; }

// Builds the pieces only when the sink takes this category and level.
template <class BuildPieces>
void emit(LogCategory category, LogLevel level, BuildPieces build) {
  const auto sink = currentSink();
  if (!sink || !sink->isEnabled(category, level)) return;
  sink->write(LogEvent{category, level, build()});
}

}  // namespace

void install(std::shared_ptr<LogSink> sink) {
  std::lock_guard lock(sinkMutex);
  installedSink = std::move(sink);
}

void say(std::string_view line) {
  emit(LogCategory::narrative, LogLevel::standard, [&] { return std::vector{shown(line)}; });
}

void say(std::vector<LogPiece> pieces) {
  emit(LogCategory::narrative, LogLevel::standard, [&] { return std::move(pieces); });
}

void captureLine(std::string_view line) {
  emit(LogCategory::capture, LogLevel::standard,
       [&] { return std::vector{shown("whatsapp read — "), shown(line)}; });
}

void messageEvents(const MessageEventsNote& note) {
  using Kind = MessageEventsNote::Kind;
  const auto level = note.kind == Kind::summary || note.kind == Kind::unobservable ? LogLevel::standard
                                                                                    : LogLevel::error;
  emit(LogCategory::capture, level, [&] {
    switch (note.kind) {
      case Kind::summary:
      case Kind::failedPass: return std::vector{shown(note.text)};
      case Kind::unobservable: return std::vector{shown("message events unobservable — "), shown(note.text)};
      case Kind::readFailed: return std::vector{shown("message events read failed — "), hidden(note.text)};
      case Kind::batchRefused:
        return std::vector{shown("message events batch refused — "), hidden(note.text)};
    }
    return std::vector{shown(note.text)};
  });
}

void relayJobFailed(std::string_view jobId, std::string_view diagnostic) {
  emit(LogCategory::relay, LogLevel::error, [&] {
    return std::vector{shown("relay job "), shown(jobId), shown(" failed — "), shown(diagnostic)};
  });
}

void replyService(std::string_view jobId, std::string_view channelKind, std::string_view service,
                  std::string_view why) {
  emit(LogCategory::relay, LogLevel::standard, [&] {
    return std::vector{shown("relay job "), shown(jobId),       shown(" on "), shown(channelKind),
                       shown(" goes out as "), shown(service), shown(" — "),  shown(why)};
  });
}

void updatesNotConfigured() {
  emit(LogCategory::updates, LogLevel::standard, [] {
    return std::vector{shown("updates are not configured in this build — no feed URL or no public key")};
  });
}

void updateChecksOn(std::string_view feed) {
  emit(LogCategory::updates, LogLevel::standard,
       [&] { return std::vector{shown("update checks are on, feed "), hidden(feed)}; });
}

void updaterDidNotStart(std::string_view reason) {
  emit(LogCategory::updates, LogLevel::error, [&] {
    return std::vector{shown("the updater could not start ("), hidden(reason), shown(") — continuing")};
  });
}

void updateCheckWithoutFeed() {
  emit(LogCategory::updates, LogLevel::standard,
       [] { return std::vector{shown("check for updates pressed in a build with no feed configured")}; });
}

void updateCheckFoundNothingNewer() {
  emit(LogCategory::updates, LogLevel::standard,
       [] { return std::vector{shown("update check finished — already on the newest build")}; });
}

void updateCheckFailed(std::string_view reason) {
  emit(LogCategory::updates, LogLevel::error,
       [&] { return std::vector{shown("update check failed — "), hidden(reason)}; });
}

void updateAvailable(std::string_view version, std::string_view build) {
  emit(LogCategory::updates, LogLevel::standard, [&] {
    return std::vector{shown("update available — "), hidden(version), shown(" (build "), hidden(build),
                       shown(")")};
  });
}

void operatorReadinessChanged(const OperatorReadiness& readiness) {
  emit(LogCategory::operating, LogLevel::standard, [&] { return std::vector{shown(operatorLine(readiness))}; });
}

void operatorStep(std::string_view outcome, std::int64_t milliseconds) {
  emit(LogCategory::operating, LogLevel::standard,
       [&] { return std::vector{shown(operatorStepLine(outcome, milliseconds))}; });
}

void operatorRunEnded(std::string_view by) {
  emit(LogCategory::operating, LogLevel::standard,
       [&] { return std::vector{shown("operator run ended by "), shown(by)}; });
}

void operatorPollFailed(long status) {
  emit(LogCategory::operating, LogLevel::standard,
       [&] { return std::vector{shown("operator poll failed, status "), shown(std::to_string(status))}; });
}

void operatorStopReported(std::string_view report, long status) {
  emit(LogCategory::operating, LogLevel::standard, [&] {
    return std::vector{shown("operator stop report "), shown(report), shown(", status "),
                       shown(std::to_string(status))};
  });
}

void operatorSwitch(bool on) {
  emit(LogCategory::operating, LogLevel::standard, [&] { return std::vector{shown(operatorSwitchLine(on))}; });
}

void operatorKeepAwake(std::string_view reason) {
  emit(LogCategory::operating, LogLevel::standard,
       [&] { return std::vector{shown("operator keep awake "), shown(reason)}; });
}

void operatorDisplayWake(bool declared, bool awake) {
  emit(LogCategory::operating, LogLevel::standard, [&] {
    return std::vector{shown("operator display wake declared "), shown(yesNo(declared)), shown(", awake "),
                       shown(yesNo(awake))};
  });
}

void nudgeNoticePosted(bool allowed) {
  emit(LogCategory::operating, LogLevel::standard, [&] {
    return std::vector{shown("nudge notice posted, notifications allowed "), shown(yesNo(allowed))};
  });
}

std::string operatorSwitchLine(bool on) { return on ? "operator switch on" : "operator switch off"; }

std::string operatorStepLine(std::string_view outcome, std::int64_t milliseconds) {
  std::string line = "operator step ";
  line.append(outcome).append(" in ").append(std::to_string(milliseconds)).append(" ms");
  return line;
}

std::string operatorLine(const OperatorReadiness& readiness) {
  std::string line = "operator readiness — ";
  if (readiness.missing.empty()) {
    line += "ready";
  } else {
    line += "not ready, ";
    for (std::size_t i = 0; i < readiness.missing.size(); ++i) {
      if (i > 0) line += ", ";
      line += readiness.missing[i];
    }
  }
  line += readiness.displayCount == 1 ? ", 1 display" : ", " + std::to_string(readiness.displayCount) + " displays";
  return line;
}

}  // namespace QuarlLog
}  // namespace quarl

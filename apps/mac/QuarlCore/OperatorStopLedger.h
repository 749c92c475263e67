#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "Clock.h"
#include "SettingsStore.h"

namespace quarl {

// How the service answered the report of a stopped run.
enum class StopReportOutcome {
  reported,  // taken
  final,     // refused for good: it will never take it, so it is not tried again
  retry      // not taken this time
};

// 2xx reported; 400, 404, 409, 410 and 422 final; anything else (0 = no answer) retry.
StopReportOutcome stopReportOutcomeOf(int status);

// The runs the owner stopped on this Mac, kept in the settings until the service has taken
// each report, so that a stop made while offline still reaches it. The list is read once and
// then kept in memory, written back on every change: a settings store that refuses a write
// must not make a stop vanish before it is reported. Called from any thread: the lock covers
// each change and its write.
class OperatorStopLedger {
 public:
  struct Entry {
    std::string runId;
    std::string by;  // the end code's raw value
    SystemTime at;
    bool reported = false;
  };

  static constexpr std::string_view key = "QuarlOperatorStops";
  static constexpr std::size_t keep = 50;
  static constexpr std::string_view byValues[] = {"bar", "menu", "hotkey", "quit", "conditions"};

  explicit OperatorStopLedger(std::shared_ptr<SettingsStore> store);

  // A run is recorded once, with its first end code; a code that needs no report ("brain") or
  // that is not known is recorded as "conditions".
  void record(const std::string& runId, std::string_view by, SystemTime at);
  void markReported(const std::string& runId);
  std::vector<Entry> unreported() const;
  std::vector<std::string> stoppedRunIds() const;

 private:
  void save();

  mutable std::mutex mutex_;
  std::shared_ptr<SettingsStore> store_;
  std::vector<Entry> entries_;
};

}  // namespace quarl

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quarl {

// The narrative category carries the "quarl: " lines of the coordinator; the other four are
// the structured categories of the unified log.
enum class LogCategory { narrative, capture, relay, updates, operating };
enum class LogLevel { standard, error };

std::string_view logCategoryName(LogCategory category);

// One run of a log line. A private run is hidden by the sink unless private data is on.
struct LogPiece {
  std::string text;
  bool isPrivate = false;
};

struct LogEvent {
  LogCategory category;
  LogLevel level;
  std::vector<LogPiece> pieces;

  // The whole line, with private runs in clear or as "<private>".
  std::string render(bool showPrivate) const;
};

// Where every log line of the companion goes: the unified log on the Mac, standard error on
// Linux. Implementations are safe to call from any thread.
class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual bool isEnabled(LogCategory category, LogLevel level) const = 0;
  virtual void write(const LogEvent& event) = 0;
};

}  // namespace quarl

#pragma once

#include "LogSink.h"

namespace quarl {

// The unified log: the narrative "quarl: " lines in the process's default log, the structured
// events under the application's subsystem in their four categories. A private run is logged
// twice over: the line with it as "<private>" in public, and the whole line as private data,
// shown only where private data is enabled.
class MacLogSink final : public LogSink {
 public:
  bool isEnabled(LogCategory category, LogLevel level) const override;
  void write(const LogEvent& event) override;
};

}  // namespace quarl

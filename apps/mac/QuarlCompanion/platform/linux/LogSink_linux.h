#pragma once

#include <mutex>

#include "LogSink.h"

namespace quarl {

// The Linux host's log: one line per event on standard error, "<time> <category> quarl: …".
// Private values show as "<private>" unless QUARL_LOG_PRIVATE=1; QUARL_LOG_LEVEL=error keeps
// only error lines.
class StandardErrorLogSink final : public LogSink {
 public:
  StandardErrorLogSink();
  bool isEnabled(LogCategory category, LogLevel level) const override;
  void write(const LogEvent& event) override;

 private:
  bool showPrivate_;
  bool errorsOnly_;
  std::mutex mutex_;
};

}  // namespace quarl

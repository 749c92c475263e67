#include "LogSink_linux.h"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "DateText.h"

namespace quarl {
namespace {

bool environmentIs(const char* name, std::string_view expected) {
  const char* value = std::getenv(name);
  return value && expected == value;
}

}  // namespace

StandardErrorLogSink::StandardErrorLogSink()
    : showPrivate_(environmentIs("QUARL_LOG_PRIVATE", "1")), errorsOnly_(environmentIs("QUARL_LOG_LEVEL", "error")) {}

bool StandardErrorLogSink::isEnabled(LogCategory, LogLevel level) const {
  return !errorsOnly_ || level == LogLevel::error;
}

void StandardErrorLogSink::write(const LogEvent& event) {
  std::string line = iso8601(std::chrono::system_clock::now());
  line.append(" ").append(logCategoryName(event.category)).append(" ");
  // Narrative lines carry their own "quarl: "; structured events are given it here.
  if (event.category != LogCategory::narrative) line += "quarl: ";
  line += event.render(showPrivate_);
  line += '\n';
  // One write per line, so that lines from several threads never interleave.
  std::lock_guard lock(mutex_);
  std::size_t written = 0;
  while (written < line.size()) {
    const auto n = ::write(STDERR_FILENO, line.data() + written, line.size() - written);
    if (n <= 0) return;
    written += static_cast<std::size_t>(n);
  }
}

}  // namespace quarl

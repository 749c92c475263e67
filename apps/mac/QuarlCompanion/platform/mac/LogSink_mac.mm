#include "LogSink_mac.h"

#include <os/log.h>

#include <string>

#include "BundleIdentity.h"

namespace quarl {

namespace {

// One logger per category, made once on first use.
os_log_t loggerFor(LogCategory category) {
  if (category == LogCategory::narrative) return OS_LOG_DEFAULT;
  static const std::string subsystem(bundleIdentifier);
  static os_log_t capture = os_log_create(subsystem.c_str(), "capture");
  static os_log_t relay = os_log_create(subsystem.c_str(), "relay");
  static os_log_t updates = os_log_create(subsystem.c_str(), "updates");
  static os_log_t operating = os_log_create(subsystem.c_str(), "operator");
  switch (category) {
    case LogCategory::capture: return capture;
    case LogCategory::relay: return relay;
    case LogCategory::updates: return updates;
    case LogCategory::operating: return operating;
    case LogCategory::narrative: break;
  }
  return OS_LOG_DEFAULT;
}

os_log_type_t typeOf(LogLevel level) { return level == LogLevel::error ? OS_LOG_TYPE_ERROR : OS_LOG_TYPE_DEFAULT; }

bool holdsPrivate(const LogEvent& event) {
  for (const auto& piece : event.pieces) {
    if (piece.isPrivate) return true;
  }
  return false;
}

}  // namespace

bool MacLogSink::isEnabled(LogCategory category, LogLevel level) const {
  return os_log_type_enabled(loggerFor(category), typeOf(level));
}

void MacLogSink::write(const LogEvent& event) {
  const auto logger = loggerFor(event.category);
  const auto type = typeOf(event.level);
  const auto shown = event.render(false);
  if (!holdsPrivate(event)) {
    os_log_with_type(logger, type, "%{public}s", shown.c_str());
    return;
  }
  const auto whole = event.render(true);
  os_log_with_type(logger, type, "%{public}s %{private}s", shown.c_str(), whole.c_str());
}

}  // namespace quarl

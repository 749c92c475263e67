#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "LogSink.h"
#include "QuarlLog.h"

namespace quarl::testing {

// Keeps every line it is given, rendered with private values hidden, and installs itself as
// the log's sink for as long as it lives.
class CapturingLogSink final : public LogSink, public std::enable_shared_from_this<CapturingLogSink> {
 public:
  static std::shared_ptr<CapturingLogSink> installed(bool standardLevelOn = true) {
    auto sink = std::make_shared<CapturingLogSink>(standardLevelOn);
    QuarlLog::install(sink);
    return sink;
  }
  explicit CapturingLogSink(bool standardLevelOn) : standardLevelOn_(standardLevelOn) {}
  ~CapturingLogSink() override = default;

  bool isEnabled(LogCategory, LogLevel level) const override {
    return standardLevelOn_ || level == LogLevel::error;
  }
  void write(const LogEvent& event) override {
    std::lock_guard lock(mutex_);
    events_.push_back(event);
  }
  std::vector<std::string> lines() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> out;
    for (const auto& event : events_) out.push_back(event.render(false));
    return out;
  }
  // How many lines hold `text`.
  int linesContaining(std::string_view text) const {
    int count = 0;
    for (const auto& line : lines()) count += line.find(text) != std::string::npos ? 1 : 0;
    return count;
  }
  // Every line, for a failure's message.
  std::string text() const {
    std::string all;
    for (const auto& line : lines()) all += "\n" + line;
    return all;
  }
  std::vector<LogEvent> events() const {
    std::lock_guard lock(mutex_);
    return events_;
  }

 private:
  bool standardLevelOn_;
  mutable std::mutex mutex_;
  std::vector<LogEvent> events_;
};

}  // namespace quarl::testing

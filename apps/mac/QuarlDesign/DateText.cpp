#include "DateText.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace quarl {

std::string iso8601(SystemTime time) {
  using namespace std::chrono;
  const auto sinceEpoch = time.time_since_epoch();
  auto seconds = floor<std::chrono::seconds>(sinceEpoch);
  const auto millis = duration_cast<milliseconds>(sinceEpoch - seconds).count();
  const std::time_t whole = static_cast<std::time_t>(seconds.count());
  std::tm parts{};
  gmtime_r(&whole, &parts);
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900,
                parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, static_cast<int>(millis));
  return text.data();
}

std::string relativeDateText(SystemTime date, SystemTime now) {
  using namespace std::chrono;
  const bool future = date > now;
  const auto elapsed = duration_cast<seconds>(future ? date - now : now - date).count();

  struct Unit {
    const char* name;
    long long seconds;
  };
  constexpr std::array<Unit, 7> units{{{"year", 365 * 86400LL},
                                       {"month", 30 * 86400LL},
                                       {"week", 7 * 86400LL},
                                       {"day", 86400},
                                       {"hour", 3600},
                                       {"minute", 60},
                                       {"second", 1}}};
  long long count = elapsed;
  std::string name = "second";
  for (const auto& unit : units) {
    if (elapsed >= unit.seconds) {
      count = elapsed / unit.seconds;
      name = unit.name;
      break;
    }
  }
  std::string amount = std::to_string(count) + " " + name + (count == 1 ? "" : "s");
  return future ? "in " + amount : amount + " ago";
}

}  // namespace quarl

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

namespace {

// Reads exactly `count` decimal digits from the front of `text`.
std::optional<int> digits(std::string_view& text, std::size_t count) {
  if (text.size() < count) return std::nullopt;
  int value = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (text[i] < '0' || text[i] > '9') return std::nullopt;
    value = value * 10 + (text[i] - '0');
  }
  text.remove_prefix(count);
  return value;
}

bool literal(std::string_view& text, char expected) {
  if (text.empty() || text.front() != expected) return false;
  text.remove_prefix(1);
  return true;
}

}  // namespace

std::optional<SystemTime> instantFromIso8601(std::string_view text) {
  using namespace std::chrono;
  const auto year = digits(text, 4);
  if (!year || !literal(text, '-')) return std::nullopt;
  const auto month = digits(text, 2);
  if (!month || !literal(text, '-')) return std::nullopt;
  const auto day = digits(text, 2);
  if (!day || !literal(text, 'T')) return std::nullopt;
  const auto hour = digits(text, 2);
  if (!hour || !literal(text, ':')) return std::nullopt;
  const auto minute = digits(text, 2);
  if (!minute || !literal(text, ':')) return std::nullopt;
  const auto second = digits(text, 2);
  if (!second) return std::nullopt;

  const year_month_day date{std::chrono::year(*year), std::chrono::month(static_cast<unsigned>(*month)),
                            std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok() || *hour > 23 || *minute > 59 || *second > 59) return std::nullopt;

  nanoseconds fraction{0};
  if (literal(text, '.')) {
    long long scale = 100'000'000;
    std::size_t count = 0;
    while (!text.empty() && text.front() >= '0' && text.front() <= '9') {
      fraction += nanoseconds((text.front() - '0') * scale);
      scale /= 10;
      text.remove_prefix(1);
      ++count;
    }
    if (count == 0) return std::nullopt;
  }

  minutes offset{0};
  if (!literal(text, 'Z')) {
    if (text.empty() || (text.front() != '+' && text.front() != '-')) return std::nullopt;
    const int sign = text.front() == '+' ? 1 : -1;
    text.remove_prefix(1);
    const auto offsetHours = digits(text, 2);
    if (!offsetHours || !literal(text, ':')) return std::nullopt;
    const auto offsetMinutes = digits(text, 2);
    if (!offsetMinutes || *offsetHours > 23 || *offsetMinutes > 59) return std::nullopt;
    offset = minutes(sign * (*offsetHours * 60 + *offsetMinutes));
  }
  if (!text.empty()) return std::nullopt;

  const auto local = sys_days(date) + hours(*hour) + minutes(*minute) + seconds(*second) + fraction;
  return time_point_cast<SystemTime::duration>(local - offset);
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

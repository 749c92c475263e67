#include "WhatsAppMessage.h"

#include <cctype>
#include <charconv>
#include <ctime>

#include "Base64.h"
#include "Trimmed.h"
#include "WhatsAppAnswerFields.h"

namespace quarl::WhatsAppWeb {
namespace json = boost::json;

namespace {

// The numbers of a text such as "10:25" or "23/11/2026", whatever separates them.
std::vector<int> numbersIn(std::string_view text, std::vector<std::size_t>* widths = nullptr) {
  std::vector<int> numbers;
  std::size_t i = 0;
  while (i < text.size()) {
    if (!std::isdigit(static_cast<unsigned char>(text[i]))) {
      ++i;
      continue;
    }
    const auto start = i;
    while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])) && i - start < 5) ++i;
    int number = 0;
    std::from_chars(text.data() + start, text.data() + i, number);
    numbers.push_back(number);
    if (widths) widths->push_back(i - start);
  }
  return numbers;
}

struct WallClock {
  int hour = 0;
  int minute = 0;
  int second = 0;
};

// "10:25", "22:05:09", "10:25 PM", "10:25\u202fp.m.".
std::optional<WallClock> wallClockOf(std::string_view text) {
  const auto numbers = numbersIn(text);
  if (numbers.size() < 2 || numbers.size() > 3) return std::nullopt;
  WallClock clock{numbers[0], numbers[1], numbers.size() == 3 ? numbers[2] : 0};
  std::string letters;
  for (const char c : text)
    if (std::isalpha(static_cast<unsigned char>(c))) letters += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (letters == "pm" || letters == "am") {
    if (clock.hour < 1 || clock.hour > 12) return std::nullopt;
    clock.hour = clock.hour % 12 + (letters == "pm" ? 12 : 0);
  } else if (!letters.empty()) {
    return std::nullopt;
  }
  if (clock.hour > 23 || clock.minute > 59 || clock.second > 59) return std::nullopt;
  return clock;
}

struct CalendarDay {
  int year = 0;
  int month = 0;
  int day = 0;
};

std::optional<SystemTime> localInstant(const CalendarDay& date, const WallClock& clock) {
  if (date.month < 1 || date.month > 12 || date.day < 1 || date.day > 31) return std::nullopt;
  std::tm fields{};
  fields.tm_year = date.year - 1900;
  fields.tm_mon = date.month - 1;
  fields.tm_mday = date.day;
  fields.tm_hour = clock.hour;
  fields.tm_min = clock.minute;
  fields.tm_sec = clock.second;
  fields.tm_isdst = -1;
  const auto seconds = std::mktime(&fields);
  // mktime moves 31 February on to March: such a day was never a date.
  if (seconds == -1 || fields.tm_mday != date.day || fields.tm_mon != date.month - 1) return std::nullopt;
  return std::chrono::system_clock::from_time_t(seconds);
}

// The readings of a date written in the owner's locale: year first, or day and month either way.
std::vector<CalendarDay> readingsOf(std::string_view text) {
  std::vector<std::size_t> widths;
  const auto numbers = numbersIn(text, &widths);
  if (numbers.size() != 3) return {};
  if (widths[0] == 4) return {{numbers[0], numbers[1], numbers[2]}};
  if (widths[2] != 4 && widths[2] != 2) return {};
  const int year = widths[2] == 2 ? 2000 + numbers[2] : numbers[2];
  return {{year, numbers[1], numbers[0]}, {year, numbers[0], numbers[1]}};
}

// Of the instants a stamp could mean, the latest that is not in the future (a day's grace for
// zones), else the earliest.
std::optional<SystemTime> likeliestOf(const std::vector<SystemTime>& candidates, SystemTime now) {
  std::optional<SystemTime> past;
  std::optional<SystemTime> future;
  for (const auto candidate : candidates) {
    if (candidate <= now + std::chrono::hours(24)) {
      if (!past || candidate > *past) past = candidate;
    } else if (!future || candidate < *future) {
      future = candidate;
    }
  }
  return past ? past : future;
}

}  // namespace

std::optional<DataId> parseDataId(std::string_view dataId) {
  if (dataId.empty()) return std::nullopt;
  if (dataId.find('@') == std::string_view::npos || dataId.find('_') == std::string_view::npos) {
    return DataId{std::string(dataId), std::nullopt, std::nullopt, std::nullopt};
  }
  std::vector<std::string_view> fields;
  std::size_t start = 0;
  for (auto bar = dataId.find('_'); bar != std::string_view::npos; bar = dataId.find('_', start)) {
    fields.push_back(dataId.substr(start, bar - start));
    start = bar + 1;
  }
  fields.push_back(dataId.substr(start));
  if (fields.size() < 3 || fields.size() > 4 || (fields[0] != "true" && fields[0] != "false")) return std::nullopt;
  if (fields[1].find('@') == std::string_view::npos || fields[2].empty()) return std::nullopt;
  DataId parsed{std::string(fields[2]), fields[0] == "true", std::string(fields[1]), std::nullopt};
  if (fields.size() == 4 && fields[3].find('@') != std::string_view::npos) parsed.authorRef = std::string(fields[3]);
  else if (fields.size() == 4) return std::nullopt;
  return parsed;
}

PrePlainText parsePrePlainText(std::string_view text, SystemTime now) {
  PrePlainText parsed;
  text = trimmed(text);
  if (text.size() < 2 || text.front() != '[') return parsed;
  const auto close = text.find(']');
  if (close == std::string_view::npos) return parsed;
  const auto stamp = text.substr(1, close - 1);
  auto rest = trimmed(text.substr(close + 1));
  if (!rest.empty() && rest.back() == ':') rest.remove_suffix(1);
  rest = trimmed(rest);
  if (!rest.empty()) parsed.senderName = std::string(rest);

  const auto comma = stamp.find(',');
  if (comma == std::string_view::npos) return parsed;
  const auto clock = wallClockOf(stamp.substr(0, comma));
  if (!clock) return parsed;
  std::vector<SystemTime> candidates;
  for (const auto& reading : readingsOf(stamp.substr(comma + 1)))
    if (auto instant = localInstant(reading, *clock)) candidates.push_back(*instant);
  parsed.sentAt = likeliestOf(candidates, now);
  return parsed;
}

std::optional<Attachment> attachment(const json::object& record, std::string_view messageId) {
  const auto* media = record.if_contains("media");
  if (!media || !media->is_object()) return std::nullopt;
  const auto& facts = media->get_object();
  Attachment file;
  file.type = stringOf(facts, "type").value_or("");
  file.mime = stringOf(facts, "mime");
  file.size = wholeOf(facts, "size");
  file.filename = stringOf(facts, "filename");
  const auto* viewOnce = facts.if_contains("viewOnce");
  file.viewOnce = viewOnce && viewOnce->is_bool() && viewOnce->get_bool();
  file.duration = wholeOf(facts, "duration");
  file.note = stringOf(record, "note");

  const auto* bytes = record.if_contains("bytes");
  if (bytes && bytes->is_object()) {
    const auto& handed = bytes->get_object();
    file.have = wholeOf(handed, "have");
    file.blobType = stringOf(handed, "blobType");
    if (auto note = stringOf(handed, "note")) file.note = std::move(note);
    if (auto text = stringOf(handed, "b64")) {
      file.bytes = base64Decode(*text);
      if (!file.bytes) {
        file.note = "the page handed over the file of message " + std::string(messageId) +
                    " in a form that is not base64, so it was not kept";
      }
    }
  }
  return file;
}

}  // namespace quarl::WhatsAppWeb

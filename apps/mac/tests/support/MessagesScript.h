#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quarl::testing {

// What the Messages stand-in reads out of one of the companion's two scripts.
struct MessagesScript {
  bool isFile = false;
  bool isGroup = false;
  std::string serviceType;  // "SMS" or "iMessage"; empty for a group
  std::string target;
  std::string body;  // the text sent, or the file's POSIX path
};

// Reads one AppleScript string literal (with the companion's `return` and `(character id 13)`
// joins) from the front of `text`, which starts just after the opening quote; none when it is
// not well formed. `text` is left just after the closing quote. Both joins are a carriage
// return, as in AppleScript itself, where `return` is the character with id 13.
inline std::optional<std::string> readLiteral(std::string_view& text) {
  std::string value;
  for (;;) {
    if (text.empty()) return std::nullopt;
    const char c = text.front();
    text.remove_prefix(1);
    if (c == '\\') {
      if (text.empty() || (text.front() != '"' && text.front() != '\\')) return std::nullopt;
      value += text.front();
      text.remove_prefix(1);
    } else if (c == '"') {
      static constexpr std::string_view returnConstant = " & return & \"";
      static constexpr std::string_view carriageReturn = " & (character id 13) & \"";
      if (text.starts_with(returnConstant)) {
        value += '\r';
        text.remove_prefix(returnConstant.size());
      } else if (text.starts_with(carriageReturn)) {
        value += '\r';
        text.remove_prefix(carriageReturn.size());
      } else {
        return value;
      }
    } else if (c == '\n' || c == '\r') {
      return std::nullopt;  // a raw line break cannot stand inside a literal
    } else {
      value += c;
    }
  }
}

// The line of `script` that starts with `prefix` (after its indentation), from after the prefix.
inline std::optional<std::string_view> lineAfter(std::string_view script, std::string_view prefix) {
  std::size_t at = 0;
  while (at < script.size()) {
    const auto end = script.find('\n', at);
    auto line = script.substr(at, end == std::string_view::npos ? std::string_view::npos : end - at);
    const auto indent = line.find_first_not_of(' ');
    if (indent != std::string_view::npos && line.substr(indent).starts_with(prefix)) {
      return script.substr(at + indent + prefix.size());
    }
    if (end == std::string_view::npos) break;
    at = end + 1;
  }
  return std::nullopt;
}

// Parses a text or file script exactly as the companion writes them; none for anything else.
inline std::optional<MessagesScript> parseMessagesScript(std::string_view script) {
  if (!script.starts_with("tell application \"Messages\"\n") || !script.ends_with("end tell\n")) return std::nullopt;
  MessagesScript parsed;
  if (auto file = lineAfter(script, "set theFile to POSIX file \"")) {
    auto rest = *file;
    auto path = readLiteral(rest);
    if (!path || !rest.starts_with("\n")) return std::nullopt;
    parsed.isFile = true;
    parsed.body = *path;
    const auto send = lineAfter(script, "send theFile to targetRecipient");
    if (!send || !send->starts_with("\nend tell\n")) return std::nullopt;
  } else {
    auto send = lineAfter(script, "send \"");
    if (!send) return std::nullopt;
    auto rest = *send;
    auto body = readLiteral(rest);
    if (!body || !rest.starts_with(" to targetRecipient\nend tell\n")) return std::nullopt;
    parsed.body = *body;
  }
  if (auto group = lineAfter(script, "set targetChat to chat id \"any;+;")) {
    auto rest = *group;
    auto target = readLiteral(rest);
    if (!target) return std::nullopt;
    parsed.isGroup = true;
    parsed.target = *target;
    return parsed;
  }
  auto service = lineAfter(script, "set targetService to 1st service whose service type = ");
  auto buddy = lineAfter(script, "set targetRecipient to buddy \"");
  if (!service || !buddy) return std::nullopt;
  parsed.serviceType = std::string(service->substr(0, service->find('\n')));
  if (parsed.serviceType != "SMS" && parsed.serviceType != "iMessage") return std::nullopt;
  auto rest = *buddy;
  auto target = readLiteral(rest);
  if (!target || !rest.starts_with(" of targetService\n")) return std::nullopt;
  parsed.target = *target;
  return parsed;
}

}  // namespace quarl::testing

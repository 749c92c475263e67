#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

namespace quarl::testing {

// What the Messages stand-in reads out of one of the companion's two scripts.
struct MessagesScript {
  bool isFile = false;
  bool isGroup = false;
  std::string serviceType = {};  // "SMS" or "iMessage"; empty for a group
  std::string target = {};
  std::string body = {};  // the text sent, or the file's POSIX path
};

// Reads one AppleScript string literal (with the companion's `return` and `(character id 13)` joins) from the
// front of `text`, which starts just after the opening quote and is left just after the closing one; none when
// it is not well formed. Both joins are a carriage return, as `return` is the character with id 13.
inline std::optional<std::string> readLiteral(std::string_view& text) {
  static constexpr std::string_view byName = " & return & \"", byId = " & (character id 13) & \"";
  std::string value;
  while (!text.empty()) {
    const char c = text.front();
    text.remove_prefix(1);
    if (c == '\n' || c == '\r') return std::nullopt;  // a raw line break cannot stand inside a literal
    if (c == '\\') {
      if (!text.starts_with('"') && !text.starts_with('\\')) return std::nullopt;
      value += text.front();
      text.remove_prefix(1);
    } else if (c != '"') {
      value += c;
    } else {
      const auto join = text.starts_with(byName) ? byName.size() : text.starts_with(byId) ? byId.size() : std::size_t{0};
      if (join == 0) return value;
      value += '\r';
      text.remove_prefix(join);
    }
  }
  return std::nullopt;
}

// The line of `script` that starts with `prefix` (after its indentation), from after the prefix.
inline std::optional<std::string_view> lineAfter(std::string_view script, std::string_view prefix) {
  for (std::size_t at = 0;; ++at) {
    const auto start = std::min(script.find_first_not_of(' ', at), script.size());
    if (script.substr(start).starts_with(prefix)) return script.substr(start + prefix.size());
    if ((at = script.find('\n', at)) == std::string_view::npos) return std::nullopt;
  }
}

// The literal that opens the line after `prefix`, when `follows` comes right after it.
inline std::optional<std::string> literalAfter(std::string_view script, std::string_view prefix, std::string_view follows) {
  auto rest = lineAfter(script, prefix).value_or("");
  auto literal = readLiteral(rest);
  return literal && rest.starts_with(follows) ? literal : std::nullopt;
}

// Parses a text or file script exactly as the companion writes them; none for anything else.
inline std::optional<MessagesScript> parseMessagesScript(std::string_view script) {
  static constexpr std::string_view file = "set theFile to POSIX file \"", group = "set targetChat to chat id \"any;+;";
  if (!script.starts_with("tell application \"Messages\"\n") || !script.ends_with("end tell\n")) return std::nullopt;
  MessagesScript parsed{.isFile = lineAfter(script, file).has_value(), .isGroup = lineAfter(script, group).has_value()};
  const auto body = parsed.isFile ? literalAfter(script, file, "\n")
                                  : literalAfter(script, "send \"", " to targetRecipient\nend tell\n");
  const auto sendsFile = lineAfter(script, "send theFile to targetRecipient").value_or("");
  if (!body || (parsed.isFile && !sendsFile.starts_with("\nend tell\n"))) return std::nullopt;
  const auto service = lineAfter(script, "set targetService to 1st service whose service type = ").value_or("");
  if (!parsed.isGroup) parsed.serviceType = service.substr(0, service.find('\n'));
  const auto target = parsed.isGroup ? literalAfter(script, group, "")
                                     : literalAfter(script, "set targetRecipient to buddy \"", " of targetService\n");
  if (!target || (!parsed.isGroup && parsed.serviceType != "SMS" && parsed.serviceType != "iMessage")) return std::nullopt;
  parsed.body = *body;
  parsed.target = *target;
  return parsed;
}

}  // namespace quarl::testing

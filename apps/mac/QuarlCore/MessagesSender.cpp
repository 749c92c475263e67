#include "MessagesSender.h"

#include <unistd.h>

#include <cstdlib>

#include "Trimmed.h"

namespace quarl {

namespace {

constexpr std::string_view groupError = "Quarl: no Messages group matches ";

std::string lines(std::initializer_list<std::string> each) {
  std::string text;
  for (const auto& line : each) text += line + "\n";
  return text;
}

}  // namespace

std::string MessagesSender::Failure::description() const {
  switch (kind_) {
    case Kind::notAuthorised:
      return "macOS has not allowed Quarl to control Messages. Turn Quarl on in System Settings → Privacy & Security "
             "→ Automation → Messages.";
    case Kind::noConversation: return "Messages has no conversation with " + detail_ + " any more.";
    case Kind::scriptFailed: return "Messages could not send that: " + detail_;
    case Kind::timedOut:
      return "Messages did not answer, so Quarl stopped waiting. Check the conversation in Messages before sending it "
             "again.";
    case Kind::noMessagesApp: return "This computer has no Messages app, so nothing was sent.";
    case Kind::nothingToSend: return std::string(nothingToSendSentence);
  }
  return "Messages could not send that: " + detail_;
}

std::string MessagesSender::Stage::describedForAPerson() const {
  if (file == 0) return "the files went but the message did not";
  if (fileCount == 1) return "the file did not go, so nothing was sent";
  return "file " + std::to_string(file) + " of " + std::to_string(fileCount) +
         " did not go, so the message was not sent either";
}

// The stage is told only when something went before it or a file failed; a lone text that
// failed needs no stage sentence.
std::string MessagesSender::StagedFailure::description() const {
  if (!stage || (stage->file == 0 && stage->fileCount == 0)) return underlying.description();
  return stage->describedForAPerson() + ": " + underlying.description();
}

std::string MessagesSender::escape(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size() + 8);
  for (const char c : text) {
    switch (c) {
      case '"': escaped += "\\\""; break;
      case '\\': escaped += "\\\\"; break;
      case '\n': escaped += "\" & return & \""; break;
      case '\r': escaped += "\" & (character id 13) & \""; break;
      default: escaped += c;
    }
  }
  return escaped;
}

bool MessagesSender::isGroup(std::string_view conversationRef, const std::optional<std::string>& guid) {
  if (guid) {
    if (guid->starts_with("any;+;")) return true;
    if (guid->starts_with("any;-;")) return false;
  }
  return conversationRef.size() > 4 && conversationRef.starts_with("chat") &&
         conversationRef.find_first_not_of("0123456789", 4) == std::string_view::npos;
}

std::string MessagesSender::resolveChat(std::string_view target, bool isGroup, const ReplyService& service) {
  const auto escapedTarget = escape(target);
  if (isGroup) {
    return lines({"    set targetChat to missing value", "    try",
                  "      set targetChat to chat id \"any;+;" + escapedTarget + "\"", "    end try",
                  "    if targetChat is missing value then",
                  "      error \"" + std::string(groupError) + escapedTarget + "\"", "    end if",
                  "    set targetRecipient to targetChat"});
  }
  return lines({"    set targetService to 1st service whose service type = " + std::string(service.serviceType()),
                "    set targetRecipient to buddy \"" + escapedTarget + "\" of targetService"});
}

std::string MessagesSender::script(std::string_view conversationRef, std::string_view body, const ReplyService& service,
                                   const std::optional<std::string>& guid) {
  return "tell application \"Messages\"\n" + resolveChat(conversationRef, isGroup(conversationRef, guid), service) +
         "  send \"" + escape(body) + "\" to targetRecipient\nend tell\n";
}

std::string MessagesSender::fileScript(std::string_view conversationRef, std::string_view posixPath,
                                       const ReplyService& service, const std::optional<std::string>& guid) {
  return "tell application \"Messages\"\n  set theFile to POSIX file \"" + escape(posixPath) + "\"\n" +
         resolveChat(conversationRef, isGroup(conversationRef, guid), service) +
         "  send theFile to targetRecipient\nend tell\n";
}

std::optional<std::string> MessagesSender::scriptRunner() {
  const char* named = std::getenv("QUARL_OSASCRIPT");
  std::string runner = named && *named ? named : std::string(osascriptPath);
  if (::access(runner.c_str(), X_OK) != 0) return std::nullopt;
  return runner;
}

std::optional<MessagesSender::Failure> MessagesSender::failureOf(const ChildOutcome& outcome, std::string_view target) {
  if (!outcome.started) return Failure(Failure::Kind::noMessagesApp);
  if (outcome.timedOut) return Failure(Failure::Kind::timedOut);
  if (outcome.exitCode == 0) return std::nullopt;
  if (outcome.errors.find("-1743") != std::string::npos) return Failure(Failure::Kind::notAuthorised);
  if (outcome.errors.find(groupError) != std::string::npos) {
    return Failure(Failure::Kind::noConversation, std::string(target));
  }
  const std::string text(trimmed(outcome.errors, " \t\r\n"));
  return Failure(Failure::Kind::scriptFailed, text.empty() ? "the script ended without saying why" : text);
}

std::optional<MessagesSender::Failure> MessagesSender::runScript(const std::string& runner, const std::string& script,
                                                                 std::string_view target,
                                                                 std::chrono::milliseconds timeout) {
  const auto outcome = runChild(runner, {}, script, timeout, terminationGrace);
  return failureOf(outcome, target);
}

}  // namespace quarl

#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "ChildProcess.h"
#include "ReplyService.h"

namespace quarl {

// Sends a reply through the Messages application by AppleScript: the scripts, their escaping,
// and what the script runner's outcome means.
struct MessagesSender {
  static constexpr std::chrono::seconds osascriptTimeout{60};
  // How long an ended script gets to go before it is killed.
  static constexpr std::chrono::seconds terminationGrace{2};
  static constexpr std::string_view osascriptPath = "/usr/bin/osascript";

  // A reply with neither, on any channel.
  static constexpr std::string_view nothingToSendSentence = "this reply had no words and no files, so nothing was sent";

  class Failure {
   public:
    enum class Kind { notAuthorised, noConversation, scriptFailed, timedOut, noMessagesApp, nothingToSend };
    Failure() = default;
    Failure(Kind kind, std::string detail = {}) : kind_(kind), detail_(std::move(detail)) {}
    Kind kind() const { return kind_; }
    std::string description() const;

   private:
    Kind kind_ = Kind::scriptFailed;
    std::string detail_;  // the target, or the script's error text
  };

  // The step at which a send stopped: file `file` of `fileCount`, or the text when `file` is 0.
  struct Stage {
    int file = 0;
    int fileCount = 0;
    std::string describedForAPerson() const;
  };

  struct StagedFailure {
    std::optional<Stage> stage;  // none when nothing was tried
    Failure underlying;
    std::string description() const;
  };

  // The text inside an AppleScript string literal: a quote and a backslash are escaped; a line
  // feed closes the literal and joins the constant `return`, so a line break arrives as one; a
  // carriage return joins `(character id 13)`, so it arrives as itself rather than being lost
  // or doubled (a CR LF pair therefore arrives as CR and a line break).
  static std::string escape(std::string_view text);
  // A group is "chat" and digits, or a chat guid starting "any;+;".
  static bool isGroup(std::string_view conversationRef, const std::optional<std::string>& guid);
  static std::string resolveChat(std::string_view target, bool isGroup, const ReplyService& service);
  static std::string script(std::string_view conversationRef, std::string_view body, const ReplyService& service,
                            const std::optional<std::string>& guid);
  static std::string fileScript(std::string_view conversationRef, std::string_view posixPath,
                                const ReplyService& service, const std::optional<std::string>& guid);

  // The script runner named by QUARL_OSASCRIPT, else /usr/bin/osascript; none when it is not there.
  static std::optional<std::string> scriptRunner();
  // Runs `script` on the runner's standard input. Blocks: call it from a worker.
  static std::optional<Failure> runScript(const std::string& runner, const std::string& script,
                                          std::string_view target, std::chrono::milliseconds timeout);
  // What a finished script run means: nothing when it went.
  static std::optional<Failure> failureOf(const ChildOutcome& outcome, std::string_view target);
};

}  // namespace quarl

#pragma once

#include <array>
#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "ChatDatabase.h"
#include "RelaySendVerdict.h"

namespace quarl {

// The rule that turns the store's outbound rows into what really happened to a relayed send,
// and the sentences each outcome is logged and reported with.
struct RelaySendConfirmation {
  static constexpr std::array<std::chrono::seconds, 4> attemptDelays{std::chrono::seconds(2), std::chrono::seconds(5),
                                                                    std::chrono::seconds(12), std::chrono::seconds(25)};
  // How far before the hand-over a row may be dated and still belong to the send.
  static constexpr std::chrono::seconds clockSlack{2};
  static constexpr int rowsPerLook = 200;

  // The files, and one more for a text that is not blank; never less than 1.
  static int expectedRows(std::size_t fileCount, std::string_view body);
  static RelaySendVerdict verdict(const std::vector<ChatDatabase::SendRecord>& rows, std::string_view conversationRef,
                                  int expected);
  static std::string refusalSentence(const std::vector<std::int64_t>& codes, int failedParts, int parts);

  // What the job says in the log after "quarl: relay: job <id>", and what is reported.
  struct Outcome {
    std::string logClause;  // empty when the send was confirmed
    bool ok = false;
    std::optional<std::string> failureReason;
    std::optional<std::string> providerMessageId = std::nullopt;
  };
  static Outcome outcome(const RelaySendVerdict& verdict, std::chrono::seconds waited);
};

}  // namespace quarl

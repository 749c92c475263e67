#include "RelaySendConfirmation.h"

#include <algorithm>
#include <set>

#include "RelaySendLedger.h"

namespace quarl {

namespace {

bool isBlank(std::string_view text) {
  return text.find_first_not_of(" \t\r\n\v\f") == std::string_view::npos;
}

// "22" or "22, 43".
std::string codeList(const std::vector<std::int64_t>& codes) {
  std::string text;
  for (const auto code : codes) {
    if (!text.empty()) text += ", ";
    text += std::to_string(code);
  }
  return text;
}

template <class... Handlers>
struct Overloaded : Handlers... {
  using Handlers::operator()...;
};
template <class... Handlers>
Overloaded(Handlers...) -> Overloaded<Handlers...>;

}  // namespace

int RelaySendConfirmation::expectedRows(std::size_t fileCount, std::string_view body) {
  const int rows = static_cast<int>(fileCount) + (isBlank(body) ? 0 : 1);
  return std::max(rows, 1);
}

RelaySendVerdict RelaySendConfirmation::verdict(const std::vector<ChatDatabase::SendRecord>& rows,
                                                std::string_view conversationRef, int expected) {
  std::vector<const ChatDatabase::SendRecord*> kept;
  for (const auto& row : rows) {
    if (RelaySendLedger::sameConversation(row.chatIdentifier, conversationRef)) kept.push_back(&row);
  }
  std::set<std::int64_t> codes;
  int failed = 0;
  for (const auto* row : kept) {
    if (row->errorCode != 0) {
      codes.insert(row->errorCode);
      ++failed;
    }
  }
  const int written = static_cast<int>(kept.size());
  if (failed > 0) return {RelaySendVerdict::Refused{{codes.begin(), codes.end()}, failed, written}};
  if (written < expected) {
    if (written == 0) return {RelaySendVerdict::NoneWritten{expected}};
    return {RelaySendVerdict::Incomplete{written, expected}};
  }
  const bool allSent = std::all_of(kept.begin(), kept.end(), [](const auto* row) { return row->isSent; });
  if (!allSent) return {RelaySendVerdict::Incomplete{written, expected}};
  // The text goes after the files, so its row is the newest that carries no file.
  const auto text = std::find_if(kept.rbegin(), kept.rend(), [](const auto* row) { return !row->carriesFile; });
  return {RelaySendVerdict::Confirmed{text != kept.rend() ? (*text)->guid : kept.back()->guid}};
}

std::string RelaySendConfirmation::refusalSentence(const std::vector<std::int64_t>& codes, int failedParts, int parts) {
  if (failedParts >= parts) {
    return "Messages did not deliver this — it did not go, and it is marked Not Delivered there (error " +
           codeList(codes) + "). Quarl did not send it, whatever the card said before.";
  }
  return "Messages did not deliver all of this — " + std::to_string(failedParts) + " of " + std::to_string(parts) +
         " parts is marked Not Delivered there (error " + codeList(codes) +
         "). The rest did go, so check Messages before sending it again.";
}

RelaySendConfirmation::Outcome RelaySendConfirmation::outcome(const RelaySendVerdict& verdict,
                                                              std::chrono::seconds waited) {
  return std::visit(
      Overloaded{
          [](const RelaySendVerdict::Confirmed& v) { return Outcome{"", true, std::nullopt, v.providerMessageId}; },
          [](const RelaySendVerdict::NotObservable& v) {
            return Outcome{" reported sent, delivery NOT observable here — " + v.reason, true, std::nullopt};
          },
          [&](const RelaySendVerdict::Incomplete& v) {
            if (v.written >= v.expected) {
              return Outcome{" reported sent WITHOUT CONFIRMATION — Messages had " + std::to_string(v.written) +
                                 " row(s) and marked none of them sent or failed ",
                             true, std::nullopt};
            }
            return Outcome{" DID NOT FULLY SEND — Messages wrote " + std::to_string(v.written) + " of " +
                               std::to_string(v.expected) + " expected row(s) within " +
                               std::to_string(waited.count()) + " s",
                           false,
                           "Messages wrote " + std::to_string(v.written) +
                               " parts of this message and never wrote the rest. Open the conversation in Messages "
                               "to see what arrived, and send the missing part again."};
          },
          [](const RelaySendVerdict::NoneWritten& v) {
            return Outcome{" DID NOT SEND — Messages wrote none of " + std::to_string(v.expected) +
                               " expected row(s); the conversation could not be addressed",
                           false,
                           "Messages did not record this message, so it was not sent. Open the conversation in "
                           "Messages and try again."};
          },
          [](const RelaySendVerdict::Refused& v) {
            return Outcome{" was REFUSED by Messages — " + std::to_string(v.failedParts) + " of " +
                               std::to_string(v.parts) + " part(s), error " + codeList(v.codes),
                           false, refusalSentence(v.codes, v.failedParts, v.parts)};
          },
      },
      verdict.value);
}

}  // namespace quarl

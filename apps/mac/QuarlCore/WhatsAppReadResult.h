#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Clock.h"
#include "WhatsAppMessage.h"

namespace quarl::WhatsAppWeb {

// What the page counted while reading: every miss is a number, so that a change in WhatsApp
// Web's markup shows on the capture line rather than as an empty inbox.
struct ReadCounts {
  std::int64_t rowsInList = 0;
  std::int64_t changed = 0;
  std::int64_t opened = 0;
  std::int64_t failedToOpen = 0;
  std::int64_t neverSelected = 0;
  std::int64_t openedEmpty = 0;
  std::int64_t raced = 0;
  std::int64_t rowsSeen = 0;
  std::int64_t noId = 0;
  std::int64_t noText = 0;
  std::int64_t noDirection = 0;
  std::int64_t noConversation = 0;
  std::int64_t noPane = 0;
  std::int64_t systemLines = 0;
  std::int64_t chatsWithNoId = 0;
  std::int64_t chatsWithNoRows = 0;
  std::int64_t mediaRows = 0;
  std::int64_t mediaBytes = 0;
  std::int64_t mediaWithoutBytes = 0;
  std::int64_t mediaViewOnce = 0;
  std::int64_t unknownMediaTypes = 0;
  std::int64_t clockAsText = 0;
  std::int64_t panesStillGrowing = 0;
  std::int64_t collapsedRows = 0;
  std::int64_t collapsedRepaired = 0;
  std::int64_t shortenedWithoutFullText = 0;
  std::int64_t ciphertextRows = 0;
  std::int64_t peekRows = 0;
  std::int64_t peekWaiting = 0;
  std::int64_t peekUnreadable = 0;
  std::int64_t peekShallow = 0;
  std::int64_t idsDisagree = 0;
  std::int64_t deferred = 0;
  std::int64_t rowsWithoutTarget = 0;
  std::int64_t nonConversationRows = 0;
  std::int64_t rowsWithoutChatId = 0;
  std::int64_t unreadableRows = 0;
  std::int64_t sharedKeyRows = 0;
  std::int64_t unreadableRecords = 0;  // message records this side could not take
};

// The answer of one capture script run.
struct ReadResult {
  bool ok = false;
  std::string stage;
  std::string reason;  // when not ok: why, in a sentence
  std::vector<Message> messages;
  ReadCounts counts;
  std::vector<std::string> peeked;           // chat keys read without opening
  std::vector<std::string> peekBlind;        // chat keys whose model could not be read
  std::vector<std::string> harvested;        // chat keys read by opening
  std::vector<std::string> ciphertextChats;  // chat keys holding rows not decrypted yet
  std::vector<std::string> fingerprints;     // the list's row prints after this pass
  std::vector<std::string> heldBack;         // chat keys kept out of the baseline
  // The chat keys the list showed after this pass, in order. The fingerprints hold more: rows
  // read before and out of sight now stay known.
  std::vector<std::string> listed;
  std::map<std::string, std::vector<std::string>> waitingTags;   // chat key → tags still decrypting
  std::map<std::string, std::vector<std::string>> resolvedTags;  // chat key → tags now readable

  // The one capture log line of the pass.
  std::string summary() const;
  // The same result without the messages already handed over and those withheld, both by
  // message id.
  ReadResult excluding(const std::set<std::string>& handedOver, const std::set<std::string>& withheld) const;
};

inline constexpr std::string_view unreadableAnswerSentence =
    "WhatsApp Web returned nothing Quarl could read — no messages were captured";

// The capture script's JSON answer. `now` places a pre-plain-text stamp's date.
ReadResult readMessages(std::string_view answer, SystemTime now);

}  // namespace quarl::WhatsAppWeb

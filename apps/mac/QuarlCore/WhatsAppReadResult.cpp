#include "WhatsAppReadResult.h"

#include <boost/json/parse.hpp>
#include <array>
#include <cmath>

#include "WhatsAppAnswerFields.h"

namespace quarl::WhatsAppWeb {
namespace json = boost::json;

namespace {

struct Counter {
  std::string_view key;  // as the page's answer names it
  std::int64_t ReadCounts::*field;
  std::string_view clause;  // follows the count on the summary line
};

// One table for reading the counts and for saying them, so that a new counter is never read
// without being reported.
constexpr std::array counters{
    Counter{"rowsInList", &ReadCounts::rowsInList, " row(s) in the list"},
    Counter{"changed", &ReadCounts::changed, " changed"},
    Counter{"opened", &ReadCounts::opened, " chat(s) opened"},
    Counter{"failedToOpen", &ReadCounts::failedToOpen, " chat(s) would not open"},
    Counter{"neverSelected", &ReadCounts::neverSelected, " pressed chat(s) never became selected"},
    Counter{"openedEmpty", &ReadCounts::openedEmpty, " chat(s) opened with no message rows"},
    Counter{"raced", &ReadCounts::raced, " chat(s) changed under the press"},
    Counter{"rowsSeen", &ReadCounts::rowsSeen, " message row(s) seen"},
    Counter{"noId", &ReadCounts::noId,
            " row(s) would not give up a WhatsApp id — a Channel or a system row, or the bubbles have moved"},
    Counter{"noText", &ReadCounts::noText, " row(s) with no words or file yet"},
    Counter{"noDirection", &ReadCounts::noDirection, " row(s) with no direction, skipped"},
    Counter{"noConversation", &ReadCounts::noConversation, " row(s) with no conversation, skipped"},
    Counter{"noPane", &ReadCounts::noPane, " time(s) no conversation pane was open"},
    Counter{"systemLines", &ReadCounts::systemLines, " system line(s) skipped"},
    Counter{"chatsWithNoId", &ReadCounts::chatsWithNoId, " chat(s) with no id"},
    Counter{"chatsWithNoRows", &ReadCounts::chatsWithNoRows, " chat(s) with no message rows"},
    Counter{"mediaRows", &ReadCounts::mediaRows, " file(s)"},
    Counter{"mediaBytes", &ReadCounts::mediaBytes, " file(s) read whole"},
    Counter{"mediaWithoutBytes", &ReadCounts::mediaWithoutBytes, " file(s) without their bytes"},
    Counter{"mediaViewOnce", &ReadCounts::mediaViewOnce, " view-once file(s) left unread"},
    Counter{"unknownMediaTypes", &ReadCounts::unknownMediaTypes, " row(s) of a type this build does not know"},
    Counter{"clockAsText", &ReadCounts::clockAsText, " clock(s) refused as words"},
    Counter{"panesStillGrowing", &ReadCounts::panesStillGrowing, " pane(s) still growing when read"},
    Counter{"collapsedRows", &ReadCounts::collapsedRows, " collapsed message(s)"},
    Counter{"collapsedRepaired", &ReadCounts::collapsedRepaired, " collapsed message(s) read whole from the page's model"},
    Counter{"shortenedWithoutFullText", &ReadCounts::shortenedWithoutFullText,
            " message(s) STORED SHORTENED — WhatsApp collapsed them and the page held no fuller text"},
    Counter{"ciphertextRows", &ReadCounts::ciphertextRows, " row(s) WhatsApp has not decrypted yet"},
    Counter{"peekRows", &ReadCounts::peekRows, " message(s) read without opening"},
    Counter{"peekWaiting", &ReadCounts::peekWaiting, " message(s) still decrypting in chats not opened"},
    Counter{"peekUnreadable", &ReadCounts::peekUnreadable, " message(s) in chats not opened that could not be read"},
    Counter{"peekShallow", &ReadCounts::peekShallow,
            " chat(s) read shallow: WhatsApp counts unread — the rest arrive when the chat is opened"},
    Counter{"idsDisagree", &ReadCounts::idsDisagree, " row(s) whose id differs from its message's"},
    Counter{"deferred", &ReadCounts::deferred, " changed row(s) left for a later pass"},
    Counter{"rowsWithoutTarget", &ReadCounts::rowsWithoutTarget, " row(s) with nothing to press"},
    Counter{"nonConversationRows", &ReadCounts::nonConversationRows, " Channel, status or broadcast row(s) left closed"},
    Counter{"rowsWithoutChatId", &ReadCounts::rowsWithoutChatId, " row(s) with no chat id"},
    Counter{"unreadableRows", &ReadCounts::unreadableRows, " row(s) with no fingerprint"},
    Counter{"sharedKeyRows", &ReadCounts::sharedKeyRows, " row(s) sharing one key"},
    Counter{"unreadableRecords", &ReadCounts::unreadableRecords, " message record(s) this build could not read"},
};

bool isReadingStage(std::string_view stage) { return stage == "read" || stage == "firstLook" || stage == "nothingChanged"; }

std::int64_t countOf(const json::object& object, std::string_view key) { return wholeOf(object, key).value_or(0); }

std::vector<std::string> stringsOf(const json::value* value) {
  std::vector<std::string> strings;
  if (!value || !value->is_array()) return strings;
  for (const auto& item : value->get_array())
    if (item.is_string()) strings.emplace_back(item.get_string());
  return strings;
}

std::map<std::string, std::vector<std::string>> tagsOf(const json::object& answer, std::string_view key) {
  std::map<std::string, std::vector<std::string>> tags;
  const auto* value = answer.if_contains(key);
  if (!value || !value->is_object()) return tags;
  for (const auto& [chat, list] : value->get_object()) {
    auto listed = stringsOf(&list);
    if (!listed.empty()) tags.emplace(std::string(chat), std::move(listed));
  }
  return tags;
}

std::optional<SystemTime> instantOfSeconds(const json::value* value) {
  if (!value || !value->is_number()) return std::nullopt;
  boost::system::error_code error;
  const auto seconds = value->to_number<double>(error);
  if (error || !std::isfinite(seconds) || seconds <= 0 || seconds > 1e11) return std::nullopt;
  return SystemTime(std::chrono::duration_cast<SystemTime::duration>(std::chrono::duration<double>(seconds)));
}

// One message record, {id, conv, title, author, fromMe, t, pre, text, media, bytes, chat, peek};
// none when it has no id, direction or conversation, from the model or from a legacy id.
std::optional<Message> messageOf(const json::object& record, SystemTime now) {
  const auto rowId = stringOf(record, "id");
  const auto dataId = rowId ? parseDataId(*rowId) : std::nullopt;
  if (!dataId) return std::nullopt;
  Message message;
  message.externalId = dataId->messageId;
  const auto fromMe = boolOf(record, "fromMe");
  auto conversation = stringOf(record, "conv");
  if (!fromMe && !dataId->fromMe) return std::nullopt;
  if (!conversation) conversation = dataId->conversationRef;
  if (!conversation || conversation->empty()) return std::nullopt;
  message.isFromMe = fromMe ? *fromMe : *dataId->fromMe;
  message.conversationRef = *conversation;
  message.text = stringOf(record, "text").value_or("");
  message.conversationTitle = stringOf(record, "title");
  message.authorRef = stringOf(record, "author");
  if (!message.authorRef) message.authorRef = dataId->authorRef;
  message.chatKey = stringOf(record, "chat");
  message.peeked = boolOf(record, "peek").value_or(false);

  PrePlainText pre;
  if (auto text = stringOf(record, "pre")) pre = parsePrePlainText(*text, now);
  message.sentAt = instantOfSeconds(record.if_contains("t"));
  if (!message.sentAt) message.sentAt = pre.sentAt;
  message.senderName = pre.senderName;
  if (auto file = attachment(record, message.externalId)) message.attachments.push_back(std::move(*file));
  return message;
}

std::string countClauses(const ReadCounts& counts) {
  std::string clauses;
  for (const auto& counter : counters) {
    const auto count = counts.*counter.field;
    if (count == 0) continue;
    clauses += ", " + std::to_string(count) + std::string(counter.clause);
  }
  return clauses;
}

}  // namespace

std::string ReadResult::summary() const {
  std::size_t withoutOpening = 0;
  for (const auto& message : messages) withoutOpening += message.peeked ? 1 : 0;
  if (!ok) {
    return "quarl: whatsapp capture read nothing (" + stage + ") — " + (reason.empty() ? "see the line above" : reason) +
           countClauses(counts);
  }
  return "quarl: whatsapp capture " + stage + ": " + std::to_string(messages.size()) + " message(s), " +
         std::to_string(withoutOpening) + " of them without opening their chat" + countClauses(counts);
}

ReadResult ReadResult::excluding(const std::set<std::string>& handedOver, const std::set<std::string>& withheld) const {
  ReadResult rest = *this;
  std::erase_if(rest.messages, [&](const Message& message) {
    return handedOver.contains(message.externalId) || withheld.contains(message.externalId);
  });
  return rest;
}

ReadResult readMessages(std::string_view answer, SystemTime now) {
  ReadResult result;
  boost::system::error_code error;
  const auto parsed = json::parse(answer, error);
  const auto* object = error ? nullptr : parsed.if_object();
  const auto stage = object ? stringOf(*object, "stage") : std::nullopt;
  if (!stage) {
    result.stage = "unreadable";
    result.reason = std::string(unreadableAnswerSentence);
    return result;
  }
  result.stage = *stage;
  result.ok = isReadingStage(*stage);
  if (!result.ok) result.reason = "the page answered at the stage " + *stage;
  for (const auto& counter : counters) result.counts.*counter.field = countOf(*object, counter.key);
  if (const auto* records = object->if_contains("messages"); records && records->is_array()) {
    for (const auto& record : records->get_array()) {
      auto message = record.is_object() ? messageOf(record.get_object(), now) : std::nullopt;
      if (message) result.messages.push_back(std::move(*message));
      else ++result.counts.unreadableRecords;
    }
  }
  result.peeked = stringsOf(object->if_contains("peeked"));
  result.peekBlind = stringsOf(object->if_contains("peekBlind"));
  result.harvested = stringsOf(object->if_contains("harvested"));
  result.ciphertextChats = stringsOf(object->if_contains("ciphertextChats"));
  result.fingerprints = stringsOf(object->if_contains("fingerprints"));
  result.heldBack = stringsOf(object->if_contains("heldBack"));
  result.listed = stringsOf(object->if_contains("listed"));
  result.waitingTags = tagsOf(*object, "waitingTags");
  result.resolvedTags = tagsOf(*object, "resolvedTags");
  return result;
}

}  // namespace quarl::WhatsAppWeb

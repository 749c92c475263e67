#include "WhatsAppCapturePass.h"

#include <algorithm>

#include "WhatsAppScripts.h"

namespace quarl::WhatsAppWeb {
namespace json = boost::json;

namespace {

// Each round of the walk takes one chat; twice the budget leaves room for rows the list
// re-sorted under a press, and still bounds a changed page.
constexpr int walkRounds = 2 * CaptureInputs::chatLimit;

json::array textsOf(const std::vector<std::string>& texts) { return json::array(texts.begin(), texts.end()); }

}  // namespace

json::object CaptureInputs::arguments() const {
  return json::object{{"chatLimit", chatLimit},
                      {"messageLimit", messageLimit},
                      {"bootstrapChats", bootstrapChats},
                      {"known", textsOf(known)},
                      {"catchUp", catchUp},
                      {"cursor", cursor},
                      {"mediaBudget", mediaBudget},
                      {"retriesSpent", textsOf(retriesSpent)},
                      {"peek", textsOf(peek)},
                      {"peekChatLimit", peekChatLimit},
                      {"peekMessageLimit", peekMessageLimit},
                      {"peekWatching", peekWatching}};
}

std::string messageTag(std::string_view messageId) {
  std::uint32_t hash = 5381;
  for (const unsigned char c : messageId) hash = (hash * 33) ^ c;
  std::string digits;
  do {
    digits.insert(digits.begin(), "0123456789abcdefghijklmnopqrstuvwxyz"[hash % 36]);
    hash /= 36;
  } while (hash > 0);
  return "m" + digits;
}

std::string captureScript() {
  return std::string(pageHelpersScript()) + "\nconst quarlWalkRounds = " + std::to_string(walkRounds) + ";\n" +
         std::string(capturePassScript());
}

std::optional<std::string> captureSkipReason(const std::optional<SessionState>& state) {
  if (!state) return "WhatsApp Web has not finished loading yet";
  switch (state->kind) {
    case SessionState::Kind::linked:
      return std::nullopt;
    case SessionState::Kind::needsLink:
      return "no phone has scanned the code on this Mac";
    case SessionState::Kind::syncing:
      return "WhatsApp is still downloading this account's messages into the page. Nothing is wrong and nothing is "
             "lost — the next tick will read it.";
    case SessionState::Kind::unrecognised:
      break;
  }
  return "the page is not WhatsApp — " + describe(*state);
}

std::vector<std::string> listedChats(const std::vector<std::string>& prints) {
  std::vector<std::string> keys;
  for (const auto& print : prints) {
    auto key = chatKey(print);
    if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(std::move(key));
  }
  return keys;
}

std::vector<Message> toPost(const ReadResult& result, const SentMessages& sent, const PeekSchedule& schedule) {
  std::set<std::string> withheld;
  for (const auto& message : result.messages) {
    if (!message.chatKey) continue;
    const auto handed = schedule.handed.find(*message.chatKey);
    if (handed == schedule.handed.end()) continue;
    if (std::find(handed->second.begin(), handed->second.end(), messageTag(message.externalId)) != handed->second.end()) {
      withheld.insert(message.externalId);
    }
  }
  auto rest = result.excluding(sent.ids(), withheld).messages;
  // The page reads each id once a pass; one id twice in an answer is still one message.
  std::set<std::string> once;
  std::erase_if(rest, [&](const Message& message) { return !once.insert(message.externalId).second; });
  return rest;
}

std::vector<Message> filesNowInHand(const ReadResult& result, const SentMessages& sent) {
  std::vector<Message> inHand;
  for (const auto& message : result.messages) {
    if (!sent.bytesOwed().contains(message.externalId)) continue;
    if (!message.attachments.empty() && message.attachments.front().bytes) inHand.push_back(message);
  }
  return inHand;
}

bool sweepIsComplete(const ReadResult& result) {
  return result.ok && result.counts.deferred == 0;
}

std::int64_t cursorAfter(std::int64_t cursor, const ReadResult& result) {
  if (!result.ok) return cursor;
  // Far below any overflow, and a multiple of every list length a pass can see.
  constexpr std::int64_t wrap = 1'000'000'000;
  return (cursor + result.counts.opened + result.counts.failedToOpen) % wrap;
}

void readAgain(const std::vector<Message>& unsent, std::vector<std::string>& baseline, PeekSchedule& schedule) {
  for (const auto& message : unsent) {
    if (!message.chatKey) continue;
    const auto& key = *message.chatKey;
    if (message.peeked) {
      schedule.lastRead.erase(key);
    } else {
      // The chat stays known, so that the baseline never empties into a first look, but no row
      // print matches an empty hash: it reads as changed and is opened again.
      std::erase_if(baseline, [&](const std::string& print) { return chatKey(print) == key; });
      baseline.push_back(key + "|");
    }
  }
}

std::vector<std::string> healthLines(const ReadResult& result) {
  std::vector<std::string> lines;
  if (result.stage == "chatListMissing") {
    lines.emplace_back(
        "quarl: whatsapp: the page is linked but is not showing the chat list. That is not an empty inbox — Quarl is "
        "looking at something else.");
  } else if (result.stage == "noChatRows") {
    lines.emplace_back(
        "quarl: whatsapp: the chat list is there and has NO ROWS in it. WhatsApp has changed the markup of a "
        "conversation row.");
  } else if (result.stage == "unreadable") {
    lines.emplace_back("quarl: whatsapp: the page answered with something this build cannot read.");
  }
  if (result.counts.opened + result.counts.openedEmpty > 0 && result.counts.rowsSeen == 0) {
    lines.emplace_back(
        "quarl: whatsapp: conversations opened and NOT ONE MESSAGE ROW was in them. The message bubbles have moved.");
  }
  return lines;
}

std::string peekClauses(const PeekSchedule& schedule) {
  std::string clauses;
  if (!schedule.waitingSince.empty()) {
    clauses += ", " + std::to_string(schedule.waitingSince.size()) +
               " chat(s) with a message still decrypting, re-read without opening every minute for up to six hours";
  }
  if (schedule.gaveUpLastPass > 0) {
    clauses += ", " + std::to_string(schedule.gaveUpLastPass) +
               " chat(s) still decrypting after six hours, or no longer in the page's memory — re-read every five "
               "minutes like the rest from now on";
  }
  return clauses;
}

}  // namespace quarl::WhatsAppWeb

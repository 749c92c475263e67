#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <cstdlib>
#include <ctime>

#include "DateText.h"
#include "WhatsAppReadResult.h"

namespace quarl {
namespace {

using namespace WhatsAppWeb;
using ::testing::HasSubstr;
using ::testing::Not;

SystemTime at(std::string_view iso) { return *instantFromIso8601(iso); }

// Local time is the owner's: each case names the zone it reads stamps in.
class InZone {
 public:
  explicit InZone(const char* zone) : was_(std::getenv("TZ") ? std::getenv("TZ") : "") {
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  ~InZone() {
    if (was_.empty()) ::unsetenv("TZ");
    else ::setenv("TZ", was_.c_str(), 1);
    ::tzset();
  }

 private:
  std::string was_;
};

TEST(WhatsAppDataId, TheLegacyFormCarriesDirectionAndConversationAndTheBareFormOnlyTheId) {
  const auto mine = parseDataId("true_4915112345678@c.us_3EB0C0FFEE");
  ASSERT_TRUE(mine);
  EXPECT_EQ(mine->messageId, "3EB0C0FFEE");
  EXPECT_EQ(mine->fromMe, true);
  EXPECT_EQ(mine->conversationRef, "4915112345678@c.us");
  EXPECT_EQ(mine->authorRef, std::nullopt);

  const auto group = parseDataId("false_120363012345678901@g.us_ABCDEF0123_4915112345678@c.us");
  ASSERT_TRUE(group);
  EXPECT_EQ(group->fromMe, false);
  EXPECT_EQ(group->conversationRef, "120363012345678901@g.us");
  EXPECT_EQ(group->messageId, "ABCDEF0123");
  EXPECT_EQ(group->authorRef, "4915112345678@c.us");

  const auto bare = parseDataId("3EB0A1B2C3D4E5F6");
  ASSERT_TRUE(bare);
  EXPECT_EQ(bare->messageId, "3EB0A1B2C3D4E5F6");
  EXPECT_EQ(bare->fromMe, std::nullopt);
  EXPECT_EQ(bare->conversationRef, std::nullopt);

  for (const auto* broken : {"", "maybe_4915112345678@c.us_3EB0", "true_4915112345678_3EB0@x", "true_4915112345678@c.us_",
                             "true_1@c.us_A_B_C", "false_120363@g.us_ABC_notajid"}) {
    EXPECT_EQ(parseDataId(broken), std::nullopt) << broken;
  }
}

TEST(WhatsAppPrePlainText, StampsAreReadInTheOwnersZoneAndLocaleAndTheNameUpToItsLastColon) {
  const InZone zone("UTC");
  const auto now = at("2026-11-23T12:00:00Z");
  const auto european = parsePrePlainText("[10:25, 23/11/2026] Alice Smith: ", now);
  EXPECT_EQ(european.sentAt, at("2026-11-23T10:25:00Z"));
  EXPECT_EQ(european.senderName, "Alice Smith");
  EXPECT_EQ(parsePrePlainText("[10:25 PM, 11/22/2026] Bob: ", now).sentAt, at("2026-11-22T22:25:00Z"));
  EXPECT_EQ(parsePrePlainText("[12:05\u202fa.m., 11/22/2026] Bob: ", now).sentAt, at("2026-11-22T00:05:00Z"));
  EXPECT_EQ(parsePrePlainText("[22:05:09, 2026-11-23] Ann: ", now).sentAt, at("2026-11-23T22:05:09Z"))
      << "later today in another zone is not the future";
  EXPECT_EQ(parsePrePlainText("[09:00, 23.11.26] Ann: ", now).sentAt, at("2026-11-23T09:00:00Z"));
  EXPECT_EQ(parsePrePlainText("[10:25, 23/11/2026] Dr: Who: ", now).senderName, "Dr: Who");

  // 03/04 is 3 April or 4 March: the latest that has already been.
  EXPECT_EQ(parsePrePlainText("[09:00, 03/04/2026] X: ", now).sentAt, at("2026-04-03T09:00:00Z"));
  EXPECT_EQ(parsePrePlainText("[09:00, 03/04/2026] X: ", at("2026-03-10T00:00:00Z")).sentAt, at("2026-03-04T09:00:00Z"));

  for (const auto* broken : {"[25:00, 1/1/2026] X: ", "[10:61, 1/1/2026] X: ", "[10:25, 31/02/2026] X: ",
                             "[10:25 XM, 1/1/2026] X: ", "[10:25] X: ", "[10:25, 1/1] X: "}) {
    const auto read = parsePrePlainText(broken, now);
    EXPECT_EQ(read.sentAt, std::nullopt) << broken;
    EXPECT_EQ(read.senderName, "X") << broken;
  }
  EXPECT_EQ(parsePrePlainText("10:25 Alice:", now).senderName, std::nullopt);

  const InZone berlin("Europe/Berlin");
  EXPECT_EQ(parsePrePlainText("[10:25, 23/11/2026] A: ", now).sentAt, at("2026-11-23T09:25:00Z"));
  EXPECT_EQ(parsePrePlainText("[10:25, 23/07/2026] A: ", now).sentAt, at("2026-07-23T08:25:00Z"));
}

// An answer as the capture script gives it: every counter, a legacy row with no model, a bare
// row with its model, a file with its bytes, a preview, a peeked record and three it cannot take.
constexpr std::string_view recorded = R"({
  "ok": true, "stage": "read",
  "rowsInList": 41, "changed": 3, "opened": 2, "failedToOpen": 1, "neverSelected": 1, "openedEmpty": 0, "raced": 0,
  "rowsSeen": 57, "noId": 4, "noText": 2, "noDirection": 1, "noConversation": 1, "systemLines": 3,
  "chatsWithNoId": 0, "chatsWithNoRows": 0, "mediaRows": 2, "mediaBytes": 1, "mediaWithoutBytes": 1,
  "mediaViewOnce": 0, "unknownMediaTypes": 1, "clockAsText": 1, "panesStillGrowing": 1, "collapsedRows": 2,
  "collapsedRepaired": 1, "shortenedWithoutFullText": 1, "ciphertextRows": 2, "peekRows": 1, "peekWaiting": 1,
  "peekUnreadable": 0, "idsDisagree": 0, "peekShallow": 1, "deferred": 5, "rowsWithoutTarget": 0,
  "nonConversationRows": 2, "rowsWithoutChatId": 0.0, "unreadableRows": "7",
  "peeked": ["k1", 7], "peekBlind": ["k9"], "harvested": ["k2", "k3"], "ciphertextChats": ["k3"],
  "fingerprints": ["k1|a", "k2|b"], "heldBack": ["k3"], "listed": ["k2", "k3"],
  "waitingTags": {"k1": ["m1x", "m2y"], "k4": []}, "resolvedTags": {"k3": ["mzz"]},
  "messages": [
    {"id": "false_4915112345678@c.us_LEGACY1", "conv": null, "fromMe": null, "t": null,
     "pre": "[10:25, 23/11/2026] Alice: ", "text": "hello", "title": "Alice", "chat": "k2", "order": 0},
    {"id": "BARE2", "conv": "120363012345678901@g.us", "author": "4915199999999@c.us", "fromMe": false,
     "t": 1795430400, "pre": "[11:00, 23/11/2026] Bob: ", "text": "photo caption", "chat": "k3", "order": 1,
     "media": {"type": "image", "mime": "image/jpeg", "size": 5, "filename": null, "viewOnce": false, "duration": "3"},
     "bytes": {"b64": "aGVsbG8=", "have": 5, "blobType": "image/jpeg"}},
    {"id": "BARE3", "conv": "4915112345678@c.us", "fromMe": true, "t": 1795430460.9, "text": "", "order": 2,
     "media": {"type": "video", "size": 9000000}, "bytes": {"note": "only a preview is on screen", "have": 1200}},
    {"id": "PEEK4", "conv": "4915112345678@c.us", "fromMe": false, "t": 1795430470, "pre": null, "text": "x",
     "chat": "k1", "peek": true, "media": {"type": "ptt", "viewOnce": true},
     "note": "the sender set this to view once, so nothing was read"},
    {"id": "BAD5", "conv": "4915112345678@c.us", "fromMe": false, "t": 1, "text": "y", "media": {"type": "image"},
     "bytes": {"b64": "%%%"}},
    {"id": "BARE6", "conv": "4915112345678@c.us", "t": 1795430400, "text": "no direction"},
    {"id": "BARE7", "fromMe": true, "t": 1795430400, "text": "no conversation"},
    "not a record"
  ]
})";

TEST(WhatsAppReadResult, ARecordedAnswerBecomesMessagesWithEveryCounterOnTheLine) {
  const InZone zone("UTC");
  const auto result = readMessages(recorded, at("2026-11-23T12:00:00Z"));
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(result.stage, "read");
  ASSERT_EQ(result.messages.size(), 5u);

  const auto& legacy = result.messages[0];
  EXPECT_EQ(legacy.externalId, "LEGACY1");
  EXPECT_FALSE(legacy.isFromMe);
  EXPECT_EQ(legacy.conversationRef, "4915112345678@c.us");
  EXPECT_EQ(legacy.sentAt, at("2026-11-23T10:25:00Z")) << "no model time: the stamp's";
  EXPECT_EQ(legacy.senderName, "Alice");
  EXPECT_EQ(legacy.conversationTitle, "Alice");
  EXPECT_EQ(legacy.chatKey, "k2");
  EXPECT_TRUE(legacy.attachments.empty());

  const auto& photo = result.messages[1];
  EXPECT_EQ(photo.sentAt, SystemTime(std::chrono::seconds(1795430400))) << "the model's time wins over the stamp";
  EXPECT_EQ(photo.senderName, "Bob");
  EXPECT_EQ(photo.authorRef, "4915199999999@c.us");
  ASSERT_EQ(photo.attachments.size(), 1u);
  EXPECT_EQ(photo.attachments[0].bytes, "hello");
  EXPECT_EQ(photo.attachments[0].duration, 3);
  EXPECT_EQ(photo.attachments[0].filename, std::nullopt);

  const auto& preview = result.messages[2];
  EXPECT_TRUE(preview.isFromMe);
  EXPECT_EQ(preview.sentAt, SystemTime(std::chrono::milliseconds(1795430460900)));
  EXPECT_EQ(preview.attachments[0].bytes, std::nullopt);
  EXPECT_EQ(preview.attachments[0].have, 1200);
  EXPECT_EQ(preview.attachments[0].note, "only a preview is on screen");

  const auto& peeked = result.messages[3];
  EXPECT_TRUE(peeked.peeked);
  EXPECT_TRUE(peeked.attachments[0].viewOnce);
  EXPECT_EQ(peeked.attachments[0].note, "the sender set this to view once, so nothing was read");
  EXPECT_THAT(*result.messages[4].attachments[0].note, HasSubstr("message BAD5 in a form that is not base64"));

  EXPECT_EQ(result.counts.unreadableRecords, 3);
  EXPECT_EQ(result.counts.unreadableRows, 7) << "a count may come as digits";
  EXPECT_EQ(result.peeked, std::vector<std::string>{"k1"});
  EXPECT_EQ(result.heldBack, std::vector<std::string>{"k3"});
  EXPECT_EQ(result.listed, (std::vector<std::string>{"k2", "k3"}));
  EXPECT_EQ(result.waitingTags.size(), 1u) << "a chat with no tags waits for nothing";
  EXPECT_EQ(result.resolvedTags.at("k3"), std::vector<std::string>{"mzz"});

  const auto line = result.summary();
  EXPECT_THAT(line, HasSubstr("quarl: whatsapp capture read: 5 message(s), 1 of them without opening their chat"));
  for (const auto* clause : {", 2 row(s) WhatsApp has not decrypted yet",
                             ", 1 message(s) STORED SHORTENED — WhatsApp collapsed them and ",
                             ", 4 row(s) would not give up a WhatsApp id — a Channel or ",
                             "WhatsApp counts unread — the rest arrive when the chat is opened",
                             ", 1 pressed chat(s) never became selected", ", 5 changed row(s) left for a later pass",
                             ", 1 clock(s) refused as words", ", 3 message record(s) this build could not read"}) {
    EXPECT_THAT(line, HasSubstr(clause));
  }
  EXPECT_THAT(line, Not(HasSubstr(" 0 "))) << "nothing counted, nothing said";

  const auto rest = result.excluding({"LEGACY1"}, {"BARE3", "NOT-THERE"});
  ASSERT_EQ(rest.messages.size(), 3u);
  EXPECT_EQ(rest.messages[0].externalId, "BARE2");
  EXPECT_EQ(rest.messages[1].externalId, "PEEK4");
  EXPECT_EQ(rest.counts.rowsSeen, 57);
}

TEST(WhatsAppReadResult, AnAnswerThatReadNothingSaysWhy) {
  for (const auto* garbage : {"", "null", "[1,2]", "{\"ok\":true}", "{\"stage\":3}", "<html>"}) {
    const auto result = readMessages(garbage, SystemTime{});
    EXPECT_FALSE(result.ok) << garbage;
    EXPECT_TRUE(result.messages.empty());
    EXPECT_EQ(result.reason, unreadableAnswerSentence);
    EXPECT_THAT(result.summary(), HasSubstr(std::string(unreadableAnswerSentence)));
  }
  const auto missing = readMessages(R"({"ok":true,"stage":"chatListMissing","noPane":1,"messages":[]})", SystemTime{});
  EXPECT_FALSE(missing.ok) << "a stage that read nothing is not ok, whatever the page said";
  EXPECT_EQ(missing.summary(),
            "quarl: whatsapp capture read nothing (chatListMissing) — the page answered at the stage chatListMissing, "
            "1 time(s) no conversation pane was open");
  EXPECT_TRUE(readMessages(R"({"ok":true,"stage":"nothingChanged"})", SystemTime{}).ok);
}

}  // namespace
}  // namespace quarl

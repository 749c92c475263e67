#include "ChatDatabase.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <tuple>

#include "../tests/support/TemporaryDirectory.h"
#include "MessagesStore.h"

namespace quarl {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using testing::MessagesStore;
using testing::appleNanoseconds;
using testing::appleSecondsRaw;
using Kind = ChatDatabaseFailure::Kind;
using Attachment = ChatDatabase::Attachment;

const SystemTime now(1'790'000'000s);  // 2026-09-21

template <class Row>
std::vector<std::string> guidsOf(const std::vector<Row>& rows) {
  std::vector<std::string> guids;
  for (const auto& row : rows) guids.push_back(row.guid);
  return guids;
}

std::string described(const ChatDatabase::Message& m) {
  return m.guid + " " + m.chatIdentifier + " " + (m.isFromMe ? "me/" : "them/") + m.handle.value_or("-") + " '" +
         m.text + "' " + (m.isSMS ? "sms " : "imessage ") + (m.isGroup ? "group " : "direct ") + m.groupName.value_or("-");
}

auto fieldsOf(const ChatDatabase::Tapback& t) {
  return std::tuple(t.rowId, t.type, t.targetGuid, t.reactorKey, t.fromMe, t.emoji, t.date, t.isSMS);
}
auto fieldsOf(const ChatDatabase::Receipt& r) { return std::tuple(r.guid, r.status, r.at, r.changedAt, r.isSMS); }
auto fieldsOf(const ChatDatabase::SendRecord& s) {
  return std::tuple(s.guid, s.chatIdentifier, s.date, s.errorCode, s.isSent, s.carriesFile);
}
auto fieldsOf(const ChatDatabase::ReplyAddress& a) { return std::tuple(a.guid, a.theirNewestService); }

std::optional<Kind> failureKind(const auto& result) {
  if (result) return std::nullopt;
  return result.error().kind();
}

// Each test's own temporary folder, so that snapshots of tests running in other processes are not counted.
class ChatDatabaseTest : public ::testing::Test {
 protected:
  ChatDatabaseTest() { ::setenv("TMPDIR", home_.path().c_str(), 1); }
  ~ChatDatabaseTest() override { ::unsetenv("TMPDIR"); }
  std::string storePath() const { return (home_.path() / "chat.db").string(); }
  ChatDatabase database() const { return ChatDatabase{storePath()}; }
  testing::TemporaryDirectory home_;
};

TEST_F(ChatDatabaseTest, ReadsMessagesAndTapbacksOfEveryShape) {
  MessagesStore store(storePath());
  const auto ann = store.handle("+15550001");
  const auto bob = store.handle("bob@example.com");
  const auto cat = store.handle("+15550003");
  const auto direct = store.chat("+15550001", "iMessage", {ann, store.handle("+15550009", "SMS")});
  const auto group = store.chat("chat1234", "iMessage", {ann, bob, cat}, "Climbing");
  const auto sms = store.chat("+15550003", "SMS", {cat});
  const auto picture = (home_.path() / "IMG_1.heic").string();
  std::ofstream(picture) << "pixels";

  const auto loved = store.message({.guid = "t0", .chat = direct, .handle = ann, .text = "Loved", .date = appleNanoseconds(now),
                                    .associatedType = 2000, .associatedGuid = "p:0/TARGET-1"});
  store.message({.guid = "m1", .chat = direct, .handle = ann, .text = "hello", .date = appleNanoseconds(now + 1s)});
  store.message({.guid = "m2", .chat = group, .handle = bob, .text = "", .attributedBody = testing::typedStreamBody(std::string(300, 'x')),
                 .date = appleNanoseconds(now + 2s)});
  store.message({.guid = "m3", .chat = sms, .handle = cat, .text = "sms text", .date = appleNanoseconds(now + 3s), .service = "SMS"});
  store.message({.guid = "empty", .chat = direct, .handle = ann, .date = appleNanoseconds(now + 4s)});
  const auto nameless = store.chat("nameless", "iMessage");
  store.message({.guid = "lost", .chat = nameless, .handle = ann, .text = "lost", .date = appleNanoseconds(now + 4s)});
  store.exec("update chat set chat_identifier = null where ROWID = " + std::to_string(nameless));
  const auto withFiles = store.message({.guid = "m5", .chat = direct, .date = appleNanoseconds(now + 5s), .isFromMe = true});
  store.attachment(withFiles, {.guid = "a1", .filename = "~/IMG_1.heic", .transferName = "IMG_1.heic", .uti = "public.heic",
                               .mimeType = "image/heic", .totalBytes = 0});
  store.attachment(withFiles, {.guid = "a2", .filename = "/x/Stickers/sticker.png", .uti = "public.png",
                               .totalBytes = 42, .isSticker = true, .sensitive = true});
  store.attachment(withFiles, {.guid = "a3", .totalBytes = 7});
  // Reactions dated among the messages, which they must not join.
  const auto custom = store.message({.guid = "t1", .chat = direct, .text = "Custom", .date = appleNanoseconds(now + 1s),
                                     .isFromMe = true, .associatedType = 2006, .associatedGuid = "bp:TARGET-2",
                                     .associatedEmoji = " 🦖 "});
  const auto removed = store.message({.guid = "t2", .chat = sms, .text = "Removed", .date = appleSecondsRaw(now + 2s),
                                      .service = "SMS", .associatedType = 3001, .associatedGuid = "junk"});
  store.message({.guid = "too old", .chat = direct, .handle = ann, .text = "Liked", .date = appleNanoseconds(now - 2h),
                 .associatedType = 2001, .associatedGuid = "TARGET-0"});

  ::setenv("HOME", home_.path().c_str(), 1);
  const auto batch = database().messages(now, 100).value();
  std::vector<std::string> read;
  for (const auto& message : batch.messages) read.push_back(described(message));
  // Two handles are a conversation between two people; three make a group.
  ASSERT_THAT(read, ElementsAre("m1 +15550001 them/+15550001 'hello' imessage direct -",
                                "m2 chat1234 them/bob@example.com '" + std::string(300, 'x') + "' imessage group Climbing",
                                "m3 +15550003 them/+15550003 'sms text' sms direct -", "m5 +15550001 me/- '' imessage direct -"));
  EXPECT_EQ(std::pair(batch.rowsRead, batch.skippedWithoutText), std::pair(6, 1)) << "a row of a conversation with no name counts as read";
  EXPECT_THAT(batch.messages[3].attachments,
              ElementsAre(Attachment{"a1", "IMG_1.heic", "image/heic", 6, std::nullopt, false, picture},
                          Attachment{"a2", "sticker.png", "image/png", 42, "sticker", true, "/x/Stickers/sticker.png"},
                          Attachment{"a3", "attachment", "application/octet-stream", 7, std::nullopt, false, std::nullopt}));
  EXPECT_THAT(guidsOf(database().messages(now, 2).value().messages), ElementsAre("m1", "m2"));
  // The cursor is exclusive: a message dated exactly at it was already handed over.
  EXPECT_THAT(guidsOf(database().messages(now + 2s, 100).value().messages), ElementsAre("m3", "m5"));

  // The emoji stays as the store has it; tapbackMeaning trims it.
  const auto tapbacks = database().tapbacks(0, now - 1h, 10).value().rows;
  ASSERT_EQ(tapbacks.size(), 3u);
  EXPECT_EQ(fieldsOf(tapbacks[0]), std::tuple(loved, 2000, "TARGET-1", "+15550001", false, std::nullopt, now, false));
  EXPECT_EQ(fieldsOf(tapbacks[1]), std::tuple(custom, 2006, "TARGET-2", ChatDatabase::ownReactorKey, true, " 🦖 ", now + 1s, false));
  EXPECT_EQ(fieldsOf(tapbacks[2]), std::tuple(removed, 3001, "junk", "", false, std::nullopt, now + 2s, true));
  EXPECT_THAT(database().tapbacks(loved, now - 1h, 1).value().rows,
              ElementsAre(::testing::Field(&ChatDatabase::Tapback::rowId, custom))) << "the messages between are passed over";
}

TEST_F(ChatDatabaseTest, OlderStoresCountInSecondsAndDegradeWithASentenceInsteadOfFailing) {
  MessagesStore store(storePath(), testing::MessagesSchema::elCapitan);
  const auto ann = store.handle("+15550001");
  const auto chat = store.chat("+15550001", "iMessage", {ann});
  const auto row = store.message({.guid = "m1", .chat = chat, .handle = ann, .text = "from 2015", .date = appleSecondsRaw(now + 1s)});
  store.attachment(row, {.guid = "a1", .filename = "/tmp/a.jpg", .totalBytes = 3});
  store.message({.guid = "out", .chat = chat, .text = "mine", .date = appleSecondsRaw(now + 2s), .isFromMe = true,
                 .dateDelivered = appleSecondsRaw(now + 3s), .isDelivered = true, .isSent = true});
  // The query tells seconds from nanoseconds by the same threshold as appleTimeToDate.
  store.message({.guid = "seconds", .chat = chat, .text = "far future in seconds", .date = 1'000'000'000'000});
  store.message({.guid = "nanoseconds", .chat = chat, .text = "2001 in nanoseconds", .date = 1'000'000'000'001});
  store.message({.guid = "old seconds", .chat = chat, .text = "yesterday in seconds", .date = appleSecondsRaw(now - 24h)});

  const auto batch = database().messages(now, 10).value();
  ASSERT_THAT(guidsOf(batch.messages), ElementsAre("m1", "out", "seconds"));
  EXPECT_EQ(batch.messages[0].date, now + 1s);
  EXPECT_EQ(batch.attachmentsUnavailable, "`attachment` has no is_sticker");
  EXPECT_EQ(database().tapbacks(0, now - 24h, 10).value().unavailableReason,
            "this Messages database has no associated_message_type, associated_message_guid column, so tapbacks cannot "
            "be read from it");
  // Delivered in seconds, handed on in nanoseconds like every other receipt.
  const auto receipts = database().receipts(0, now - 24h, 10).value().rows;
  ASSERT_EQ(receipts.size(), 1u);
  EXPECT_EQ(fieldsOf(receipts[0]), std::tuple("out", "delivered", now + 3s, appleSecondsRaw(now + 3s) * 1'000'000'000, false));
}

TEST_F(ChatDatabaseTest, EachMissingFileTableOrColumnHasItsOwnOutcome) {
  EXPECT_EQ(database().messages(now, 10).error().description(), "No Messages database at " + storePath() + ".");

  // Without the attachment table or the tapback column the messages still come. (SQLite drops no
  // column an index names, so this store has none.)
  MessagesStore store(storePath(), testing::MessagesSchema::tahoe, MessagesStore::Opening::create,
                      testing::StoreIndexes::none);
  const auto chat = store.chat("+1555", "iMessage");
  store.message({.guid = "m1", .chat = chat, .text = "hi", .date = appleNanoseconds(now + 1s)});
  store.message({.guid = "reaction", .chat = chat, .text = "Liked “hi”", .date = appleNanoseconds(now + 2s),
                 .associatedType = 2001, .associatedGuid = "m1"});
  store.exec("drop table message_attachment_join; drop table attachment;"
             "alter table message drop column associated_message_type;");
  const auto batch = database().messages(now, 10).value();
  EXPECT_THAT(guidsOf(batch.messages), ElementsAre("m1", "reaction")) << "no column, no tapback filter";
  EXPECT_EQ(batch.attachmentsUnavailable, "the table `attachment` is missing entirely");
  EXPECT_EQ(database().tapbacks(0, now, 10).value().unavailableReason,
            "this Messages database has no associated_message_type column, so tapbacks cannot be read from it");

  // Without a table or column every reader needs, nothing is read.
  store.exec("drop table handle;");
  EXPECT_EQ(database().verifySchema().error().detail(), "the table `handle` is missing entirely");
  store.exec("alter table chat drop column display_name; alter table chat drop column service_name;");
  EXPECT_EQ(database().verifySchema().error().detail(), "`chat` has no service_name, display_name")
      << "`chat` is checked before `handle`";
  EXPECT_EQ(failureKind(database().messages(now, 10)), Kind::schemaChanged);
  const auto isSnapshot = [](const fs::directory_entry& e) { return e.path().filename().string().starts_with("quarl-chatdb-"); };
  EXPECT_TRUE(std::none_of(fs::directory_iterator(fs::temp_directory_path()), fs::directory_iterator(), isSnapshot))
      << "a failing query removes its snapshot too";
}

TEST_F(ChatDatabaseTest, ACorruptOrTruncatedFileIsAFailureNeverACrash) {
  std::ofstream(storePath(), std::ios::binary) << std::string(4096, '\x5A');
  EXPECT_FALSE(database().isReadable());
  EXPECT_EQ(database().messages(now, 10).error().description(), "Reading the Messages database failed: file is not a database");
  EXPECT_THAT((std::vector{failureKind(database().verifySchema()), failureKind(database().tapbacks(0, now, 10)),
                           failureKind(database().receipts(0, now, 10)), failureKind(database().outboundSends(now, 10)),
                           failureKind(database().replyAddress("+1"))}), ::testing::Each(Kind::query));

  fs::remove(storePath());
  { MessagesStore store(storePath()); }
  fs::remove(storePath() + "-wal");
  fs::resize_file(storePath(), fs::file_size(storePath()) / 2);
  EXPECT_EQ(failureKind(database().messages(now, 10)), Kind::query) << "a file cut short";

  if (::geteuid() != 0) {  // permissions mean nothing to root
    fs::permissions(storePath(), fs::perms::none);
    EXPECT_FALSE(database().isReadable());
    EXPECT_EQ(database().messages(now, 10).error().description(),
              "macOS refused access to " + storePath() + ". Quarl needs Full Disk Access.");
  }
}

TEST_F(ChatDatabaseTest, TheOwnersRowsGiveReceiptsSendOutcomesAndTheReplyAddress) {
  MessagesStore store(storePath());
  const auto ann = store.handle("+15550001");
  const auto chat = store.chat("+15550001", "iMessage", {ann});
  const auto hourAgo = appleNanoseconds(now - 1h);
  store.message({.guid = "read", .chat = chat, .text = "a", .date = hourAgo, .isFromMe = true,
                 .dateRead = appleNanoseconds(now + 9s), .dateDelivered = appleNanoseconds(now + 2s), .isDelivered = true});
  store.message({.guid = "delivered", .chat = chat, .text = "b", .date = hourAgo, .isFromMe = true,
                 .dateDelivered = appleNanoseconds(now + 5s), .isDelivered = true});
  store.message({.guid = "undelivered flag", .chat = chat, .text = "c", .date = hourAgo, .isFromMe = true,
                 .dateDelivered = appleNanoseconds(now + 5s), .isDelivered = false});
  store.message({.guid = "inbound", .chat = chat, .text = "d", .date = hourAgo, .dateRead = appleNanoseconds(now + 5s)});
  store.message({.guid = "sms", .chat = chat, .text = "e", .date = hourAgo, .isFromMe = true, .service = "SMS",
                 .dateDelivered = appleNanoseconds(now + 5s), .isDelivered = true});
  store.message({.guid = "reaction", .chat = chat, .text = "f", .date = hourAgo, .isFromMe = true, .associatedType = 2000,
                 .associatedGuid = "read", .dateDelivered = appleNanoseconds(now + 5s), .isDelivered = true});
  // Sends of the last seconds, and what the other side wrote last.
  store.message({.guid = "before", .chat = chat, .text = "x", .date = appleNanoseconds(now - 1s), .isFromMe = true});
  store.message({.guid = "failed", .chat = chat, .text = "x", .date = appleNanoseconds(now), .isFromMe = true, .error = 22});
  // The object replacement character is the text Messages writes for a file.
  store.message({.guid = "sent", .chat = chat, .text = "\xEF\xBF\xBC", .date = appleNanoseconds(now + 1s), .isFromMe = true,
                 .isSent = true});
  store.message({.guid = "their sms", .chat = chat, .handle = ann, .text = "y", .date = appleNanoseconds(now - 5s), .service = "SMS"});
  store.message({.guid = "their imessage", .chat = chat, .handle = ann, .text = "y", .date = appleNanoseconds(now - 9s)});
  store.message({.guid = "no service", .chat = chat, .handle = ann, .text = "y", .date = appleNanoseconds(now), .service = ""});

  const auto receipts = database().receipts(0, now - 1h, 10).value().rows;
  ASSERT_EQ(receipts.size(), 2u);
  EXPECT_EQ(fieldsOf(receipts[0]), std::tuple("delivered", "delivered", now + 5s, appleNanoseconds(now + 5s), false));
  EXPECT_EQ(fieldsOf(receipts[1]), std::tuple("read", "read", now + 9s, appleNanoseconds(now + 9s), false));
  EXPECT_THAT(guidsOf(database().receipts(appleNanoseconds(now + 5s), now - 1h, 10).value().rows), ElementsAre("read"));
  EXPECT_TRUE(database().receipts(0, now - 59min, 10).value().rows.empty()) << "sent before sentSince";

  const auto sends = database().outboundSends(now, 10).value().rows;
  ASSERT_EQ(sends.size(), 2u);
  EXPECT_EQ(fieldsOf(sends[0]), std::tuple("failed", "+15550001", now, 22, false, false));
  EXPECT_EQ(fieldsOf(sends[1]), std::tuple("sent", "+15550001", now + 1s, 0, true, true));

  EXPECT_EQ(fieldsOf(database().replyAddress("+15550001").value()), std::tuple("iMessage;-;+15550001", "SMS"));
  EXPECT_EQ(fieldsOf(database().replyAddress("+19999").value()), std::tuple(std::nullopt, std::nullopt));
  EXPECT_EQ(database().conversationGuid("+15550001").value(), "iMessage;-;+15550001");
  EXPECT_EQ(database().conversationGuid("+19999").value(), std::nullopt);
}

TEST_F(ChatDatabaseTest, AttachmentBytesStopOneByteAfterTheLimit) {
  const auto file = (home_.path() / "video.mov").string();
  const std::string video(200'000, 'v');
  std::ofstream(file, std::ios::binary) << video;
  EXPECT_EQ(ChatDatabase::attachmentBytes(file, 200'000).value(), video);
  EXPECT_EQ(ChatDatabase::attachmentBytes(file, 199'999).value(), std::nullopt);
  EXPECT_EQ(ChatDatabase::attachmentBytes(file, 1 << 16).value(), std::nullopt) << "the size of one piece read";
  EXPECT_EQ(ChatDatabase::attachmentBytes(file + ".gone", 1000).value(), std::nullopt);
  std::ofstream(file, std::ios::binary | std::ios::trunc);
  EXPECT_EQ(ChatDatabase::attachmentBytes(file, 10).value(), std::string());
}

TEST(ChatDatabaseRules, DatesServicesTapbacksAndTargets) {
  const SystemTime appleEpoch(978307200s);
  EXPECT_EQ(ChatDatabase::appleTimeToDate(1'000'000'000'001), appleEpoch + 1000s + 1ns);
  EXPECT_GT(ChatDatabase::appleTimeToDate(1'000'000'000'000), SystemTime(8'000'000'000s)) << "read as seconds";
  EXPECT_EQ(ChatDatabase::appleSeconds(appleEpoch + 90s + 999ms), 90);
  EXPECT_FALSE(ChatDatabase::filesAsSMS("IMESSAGE"));
  EXPECT_TRUE(ChatDatabase::filesAsSMS(std::nullopt)) << "only a chat the store says is iMessage is one";

  using Meaning = ChatDatabase::TapbackMeaning;
  const std::vector<std::tuple<std::int64_t, std::optional<std::string>, std::optional<Meaning>>> meanings = {
      {2000, std::nullopt, Meaning{true, "❤️"}}, {2004, "🦖", Meaning{true, "‼️"}}, {2005, std::nullopt, Meaning{true, "❓"}},
      {2006, " 🦖\n", Meaning{true, "🦖"}}, {2006, "  ", std::nullopt}, {2007, "🦖", std::nullopt}, {0, std::nullopt, std::nullopt},
      {3000, std::nullopt, Meaning{false, std::nullopt}}, {3006, "🦖", Meaning{false, std::nullopt}}};
  for (const auto& [type, emoji, meaning] : meanings) EXPECT_EQ(ChatDatabase::tapbackMeaning(type, emoji), meaning) << type;

  const std::vector<std::pair<std::string, std::optional<std::string>>> targets = {
      {"p:12/ABC/2", "ABC/2"}, {" bp:ABC-1\n", "ABC-1"}, {"p:0", std::nullopt}, {"bp:", std::nullopt}, {"   ", std::nullopt}};
  for (const auto& [associated, target] : targets) EXPECT_EQ(ChatDatabase::targetGuid(associated), target) << associated;
}

}  // namespace
}  // namespace quarl

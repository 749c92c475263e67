#include "ChatDatabase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "../tests/support/FileContents.h"
#include "../tests/support/TemporaryDirectory.h"
#include "MessagesStore.h"

namespace quarl {
namespace {

using namespace std::chrono_literals;
using testing::AttachmentRow;
using testing::MessageRow;
using testing::MessagesSchema;
using testing::MessagesStore;
using testing::appleNanoseconds;
using testing::appleSecondsRaw;
using Kind = ChatDatabaseFailure::Kind;

const SystemTime now(1'790'000'000s);  // 2026-09-21

std::vector<std::string> guidsOf(const std::vector<ChatDatabase::Message>& messages) {
  std::vector<std::string> guids;
  for (const auto& message : messages) guids.push_back(message.guid);
  return guids;
}

// Snapshot folders left behind in the temporary folder.
std::size_t leftoverSnapshots() {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::temp_directory_path())) {
    if (entry.path().filename().string().starts_with("quarl-chatdb-")) ++count;
  }
  return count;
}

// Each test has a temporary folder of its own, so that the snapshots of tests running at the
// same time in other processes are not counted as left behind.
class ChatDatabaseTest : public ::testing::Test {
 protected:
  ChatDatabaseTest() {
    std::filesystem::create_directories(home_.path() / "tmp");
    ::setenv("TMPDIR", (home_.path() / "tmp").c_str(), 1);
  }
  ~ChatDatabaseTest() override { ::unsetenv("TMPDIR"); }
  std::string storePath() const { return (home_.path() / "chat.db").string(); }
  ChatDatabase database() const { return ChatDatabase{storePath()}; }
  testing::TemporaryDirectory home_;
};

TEST_F(ChatDatabaseTest, ReadsMessagesOfEveryShapeIncludingRowsStillInTheWriteAheadLog) {
  MessagesStore store(storePath());
  const auto ann = store.handle("+15550001");
  const auto bob = store.handle("bob@example.com");
  const auto cat = store.handle("+15550003");
  const auto direct = store.chat("+15550001", "iMessage", {ann, store.handle("+15550009", "SMS")});
  const auto group = store.chat("chat1234", "iMessage", {ann, bob, cat}, "Climbing");
  const auto sms = store.chat("+15550003", "SMS", {cat});
  const auto picture = home_.path() / "IMG_1.heic";
  std::ofstream(picture) << "pixels";

  store.message({.guid = "old", .chat = direct, .handle = ann, .text = "before", .date = appleNanoseconds(now - 1h)});
  store.message({.guid = "m1", .chat = direct, .handle = ann, .text = "hello", .date = appleNanoseconds(now + 1s)});
  store.message({.guid = "m2", .chat = group, .handle = bob, .text = "", .attributedBody = testing::typedStreamBody(std::string(300, 'x')),
                 .date = appleNanoseconds(now + 2s)});
  store.message({.guid = "m3", .chat = sms, .handle = cat, .text = "sms text", .date = appleNanoseconds(now + 3s), .service = "SMS"});
  store.message({.guid = "empty", .chat = direct, .handle = ann, .date = appleNanoseconds(now + 4s)});
  const auto withFiles = store.message({.guid = "m5", .chat = direct, .date = appleNanoseconds(now + 5s), .isFromMe = true});
  store.attachment(withFiles, {.guid = "a1", .filename = "~/IMG_1.heic", .transferName = "IMG_1.heic", .uti = "public.heic",
                               .mimeType = "image/heic", .totalBytes = 0});
  store.attachment(withFiles, {.guid = "a2", .filename = "/x/Stickers/sticker.png", .uti = "public.png",
                               .totalBytes = 42, .isSticker = true, .sensitive = true});
  store.attachment(withFiles, {.guid = "a3", .totalBytes = 7});
  store.message({.guid = "tapback", .chat = direct, .handle = ann, .text = "Loved “hello”", .date = appleNanoseconds(now + 6s),
                 .associatedType = 2000, .associatedGuid = "p:0/m1"});
  store.close();
  ASSERT_GT(std::filesystem::file_size(storePath() + "-wal"), 0u);

  ::setenv("HOME", home_.path().c_str(), 1);
  const auto batch = database().messages(now, 100);
  ASSERT_TRUE(batch) << batch.error().description();
  EXPECT_THAT(guidsOf(batch->messages), ::testing::ElementsAre("m1", "m2", "m3", "m5"));
  EXPECT_EQ(batch->skippedWithoutText, 1);
  EXPECT_EQ(batch->attachmentsUnavailable, std::nullopt);

  const auto& hello = batch->messages[0];
  EXPECT_EQ(hello.chatIdentifier, "+15550001");
  EXPECT_EQ(hello.handle, "+15550001");
  EXPECT_EQ(hello.text, "hello");
  EXPECT_FALSE(hello.isFromMe);
  EXPECT_FALSE(hello.isSMS);
  EXPECT_FALSE(hello.isGroup) << "two handles are a conversation between two people";
  EXPECT_EQ(hello.groupName, std::nullopt);
  EXPECT_EQ(hello.date, now + 1s);

  const auto& inGroup = batch->messages[1];
  EXPECT_EQ(inGroup.text, std::string(300, 'x'));
  EXPECT_TRUE(inGroup.isGroup);
  EXPECT_EQ(inGroup.groupName, "Climbing");
  EXPECT_TRUE(batch->messages[2].isSMS);

  const auto& files = batch->messages[3];
  EXPECT_TRUE(files.isFromMe);
  EXPECT_EQ(files.handle, std::nullopt);
  EXPECT_EQ(files.text, "");
  ASSERT_EQ(files.attachments.size(), 3u);
  EXPECT_EQ(files.attachments[0], (ChatDatabase::Attachment{"a1", "IMG_1.heic", "image/heic", 6, std::nullopt, false,
                                                            picture.string()}));
  EXPECT_EQ(files.attachments[1], (ChatDatabase::Attachment{"a2", "sticker.png", "image/png", 42, "sticker", true,
                                                            "/x/Stickers/sticker.png"}));
  EXPECT_EQ(files.attachments[2], (ChatDatabase::Attachment{"a3", "attachment", "application/octet-stream", 7,
                                                            std::nullopt, false, std::nullopt}));

  const auto limited = database().messages(now, 2);
  ASSERT_TRUE(limited);
  EXPECT_THAT(guidsOf(limited->messages), ::testing::ElementsAre("m1", "m2"));
  // The cursor is exclusive: a message dated exactly at it was already handed over.
  const auto after = database().messages(now + 2s, 100);
  ASSERT_TRUE(after);
  EXPECT_THAT(guidsOf(after->messages), ::testing::ElementsAre("m3", "m5"));
  EXPECT_EQ(leftoverSnapshots(), 0u);
}

TEST_F(ChatDatabaseTest, TheNanosecondThresholdIsTheSameInTheQueryAndInTheConversion) {
  const SystemTime appleEpoch(978307200s);
  EXPECT_EQ(ChatDatabase::appleTimeToDate(1'000'000'000'001), appleEpoch + 1000s + 1ns);
  EXPECT_EQ(ChatDatabase::appleTimeToDate(700'000'000), appleEpoch + 700'000'000s);
  EXPECT_GT(ChatDatabase::appleTimeToDate(1'000'000'000'000), SystemTime(8'000'000'000s)) << "read as seconds";
  EXPECT_EQ(ChatDatabase::appleSeconds(appleEpoch + 90s + 999ms), 90);

  MessagesStore store(storePath());
  const auto chat = store.chat("+1555", "iMessage");
  store.message({.guid = "seconds", .chat = chat, .text = "far future in seconds", .date = 1'000'000'000'000});
  store.message({.guid = "nanoseconds", .chat = chat, .text = "2001 in nanoseconds", .date = 1'000'000'000'001});
  store.message({.guid = "old seconds", .chat = chat, .text = "2023 in seconds", .date = appleSecondsRaw(now - 24h)});
  store.message({.guid = "new seconds", .chat = chat, .text = "now in seconds", .date = appleSecondsRaw(now)});
  store.close();
  const auto batch = database().messages(now - 1h, 10);
  ASSERT_TRUE(batch);
  EXPECT_THAT(guidsOf(batch->messages), ::testing::ElementsAre("new seconds", "seconds"));
  EXPECT_EQ(batch->messages[0].date, now);
}

TEST_F(ChatDatabaseTest, OlderStoresDegradeWithASentenceInsteadOfFailing) {
  MessagesStore store(storePath(), MessagesSchema::elCapitan);
  const auto ann = store.handle("+15550001");
  const auto chat = store.chat("+15550001", "iMessage", {ann});
  const auto row = store.message({.guid = "m1", .chat = chat, .handle = ann, .text = "from 2015",
                                  .date = appleSecondsRaw(now + 1s)});
  store.attachment(row, {.guid = "a1", .filename = "/tmp/a.jpg", .totalBytes = 3});
  store.message({.guid = "out", .chat = chat, .text = "mine", .date = appleSecondsRaw(now + 2s), .isFromMe = true,
                 .dateDelivered = appleSecondsRaw(now + 3s), .isDelivered = true, .isSent = true});
  store.close();

  EXPECT_TRUE(database().verifySchema());
  const auto batch = database().messages(now, 10);
  ASSERT_TRUE(batch) << batch.error().description();
  EXPECT_THAT(guidsOf(batch->messages), ::testing::ElementsAre("m1", "out"));
  EXPECT_EQ(batch->messages[0].date, now + 1s);
  EXPECT_EQ(batch->attachmentsUnavailable, "`attachment` has no is_sticker");
  EXPECT_TRUE(batch->messages[0].attachments.empty());

  const auto tapbacks = database().tapbacks(0, now - 24h, 10);
  ASSERT_TRUE(tapbacks);
  EXPECT_EQ(tapbacks->unavailableReason,
            "this Messages database has no associated_message_type, associated_message_guid column, so tapbacks cannot "
            "be read from it");

  const auto receipts = database().receipts(0, now - 24h, 10);
  ASSERT_TRUE(receipts) << receipts.error().description();
  ASSERT_EQ(receipts->rows.size(), 1u);
  EXPECT_EQ(receipts->rows[0].status, "delivered");
  EXPECT_EQ(receipts->rows[0].at, now + 3s);
  EXPECT_EQ(receipts->rows[0].changedAt, appleSecondsRaw(now + 3s) * 1'000'000'000);
}

TEST_F(ChatDatabaseTest, StoresWithoutTheAttachmentTableOrTheTapbackColumnStillGiveTheirMessages) {
  MessagesStore store(storePath());
  const auto chat = store.chat("+1555", "iMessage");
  store.message({.guid = "m1", .chat = chat, .text = "hi", .date = appleNanoseconds(now + 1s)});
  store.message({.guid = "reaction", .chat = chat, .text = "Liked “hi”", .date = appleNanoseconds(now + 2s),
                 .associatedType = 2001, .associatedGuid = "m1"});
  store.exec("drop table message_attachment_join; drop table attachment;");
  store.exec("alter table message drop column associated_message_type;");
  store.close();

  const auto batch = database().messages(now, 10);
  ASSERT_TRUE(batch) << batch.error().description();
  EXPECT_THAT(guidsOf(batch->messages), ::testing::ElementsAre("m1", "reaction")) << "no column, no tapback filter";
  EXPECT_EQ(batch->attachmentsUnavailable, "the table `attachment` is missing entirely");
  const auto tapbacks = database().tapbacks(0, now, 10);
  ASSERT_TRUE(tapbacks);
  EXPECT_EQ(tapbacks->unavailableReason,
            "this Messages database has no associated_message_type column, so tapbacks cannot be read from it");
}

TEST_F(ChatDatabaseTest, MissingFilesTablesAndColumnsAreTheirOwnFailures) {
  const auto missing = database().messages(now, 10);
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().description(), "No Messages database at " + storePath() + ".");
  EXPECT_FALSE(database().isReadable());
  EXPECT_EQ(database().verifySchema().error().kind(), Kind::notFound);

  {
    MessagesStore store(storePath());
    store.exec("alter table chat drop column display_name; alter table chat drop column service_name;");
  }
  EXPECT_TRUE(database().isReadable());
  EXPECT_EQ(database().verifySchema().error().description(),
            "The Messages database is not the shape Quarl knows how to read: `chat` has no service_name, display_name");
  EXPECT_EQ(database().messages(now, 10).error().kind(), Kind::schemaChanged);

  std::filesystem::remove(storePath());
  std::filesystem::remove(storePath() + "-wal");
  std::filesystem::remove(storePath() + "-shm");
  {
    MessagesStore store(storePath());
    store.exec("drop table handle;");
  }
  EXPECT_EQ(database().verifySchema().error().detail(), "the table `handle` is missing entirely");
  EXPECT_EQ(leftoverSnapshots(), 0u) << "a failing query removes its snapshot too";
}

TEST_F(ChatDatabaseTest, ACorruptOrTruncatedFileIsAFailureNeverACrash) {
  std::ofstream(storePath(), std::ios::binary) << std::string(4096, '\x5A');
  EXPECT_FALSE(database().isReadable());
  const auto corrupt = database().messages(now, 10);
  ASSERT_FALSE(corrupt);
  EXPECT_EQ(corrupt.error().description(), "Reading the Messages database failed: file is not a database");
  EXPECT_EQ(database().verifySchema().error().kind(), Kind::query);
  EXPECT_EQ(database().tapbacks(0, now, 10).error().kind(), Kind::query);
  EXPECT_EQ(database().receipts(0, now, 10).error().kind(), Kind::query);
  EXPECT_EQ(database().outboundSends(now, 10).error().kind(), Kind::query);
  EXPECT_EQ(database().replyAddress("+1").error().kind(), Kind::query);

  std::filesystem::remove(storePath());
  { MessagesStore store(storePath()); }
  std::filesystem::remove(storePath() + "-wal");
  std::filesystem::resize_file(storePath(), std::filesystem::file_size(storePath()) / 2);
  const auto truncated = database().messages(now, 10);
  ASSERT_FALSE(truncated) << "a file cut short";
  EXPECT_EQ(truncated.error().kind(), Kind::query) << truncated.error().description();
  EXPECT_EQ(leftoverSnapshots(), 0u);

  if (::geteuid() != 0) {  // permissions mean nothing to root
    std::filesystem::permissions(storePath(), std::filesystem::perms::none);
    EXPECT_FALSE(database().isReadable());
    EXPECT_EQ(database().messages(now, 10).error().description(),
              "macOS refused access to " + storePath() + ". Quarl needs Full Disk Access.");
  }
}

TEST_F(ChatDatabaseTest, TapbacksAreReadAfterTheirRowWithTargetsAndReactors) {
  MessagesStore store(storePath());
  const auto ann = store.handle("+15550001");
  const auto chat = store.chat("+15550001", "iMessage", {ann});
  const auto sms = store.chat("+15550002", "SMS");
  const auto first = store.message({.guid = "t0", .chat = chat, .handle = ann, .text = "Loved",
                                    .date = appleNanoseconds(now), .associatedType = 2000, .associatedGuid = "p:0/TARGET-1"});
  store.message({.guid = "plain", .chat = chat, .handle = ann, .text = "not a reaction", .date = appleNanoseconds(now)});
  store.message({.guid = "t1", .chat = chat, .text = "Custom", .date = appleNanoseconds(now + 1s), .isFromMe = true,
                 .associatedType = 2006, .associatedGuid = "bp:TARGET-2", .associatedEmoji = " 🦖 "});
  store.message({.guid = "t2", .chat = sms, .text = "Removed", .date = appleSecondsRaw(now + 2s), .service = "SMS",
                 .associatedType = 3001, .associatedGuid = "junk"});
  store.message({.guid = "too old", .chat = chat, .handle = ann, .text = "Liked", .date = appleNanoseconds(now - 2h),
                 .associatedType = 2001, .associatedGuid = "TARGET-0"});
  store.close();

  const auto readout = database().tapbacks(0, now - 1h, 10);
  ASSERT_TRUE(readout) << readout.error().description();
  EXPECT_EQ(readout->unavailableReason, std::nullopt);
  ASSERT_EQ(readout->rows.size(), 3u);
  const auto& loved = readout->rows[0];
  EXPECT_EQ(loved.rowId, first);
  EXPECT_EQ(loved.type, 2000);
  EXPECT_EQ(loved.targetGuid, "TARGET-1");
  EXPECT_EQ(loved.reactorKey, "+15550001");
  EXPECT_FALSE(loved.fromMe);
  EXPECT_EQ(loved.date, now);
  const auto& custom = readout->rows[1];
  EXPECT_EQ(custom.reactorKey, ChatDatabase::ownReactorKey);
  EXPECT_EQ(custom.targetGuid, "TARGET-2");
  EXPECT_EQ(ChatDatabase::tapbackMeaning(custom.type, custom.emoji), (ChatDatabase::TapbackMeaning{true, "🦖"}));
  EXPECT_TRUE(readout->rows[2].isSMS);
  EXPECT_EQ(readout->rows[2].targetGuid, "junk");
  EXPECT_EQ(readout->rows[2].date, now + 2s);

  const auto later = database().tapbacks(first, now - 1h, 1);
  ASSERT_TRUE(later);
  ASSERT_EQ(later->rows.size(), 1u);
  EXPECT_EQ(later->rows[0].targetGuid, "TARGET-2");

  const auto messages = database().messages(now - 1h, 10);
  ASSERT_TRUE(messages);
  EXPECT_THAT(guidsOf(messages->messages), ::testing::ElementsAre("plain")) << "reactions are not messages";
}

TEST_F(ChatDatabaseTest, ReceiptsTellTheNewestStatusOfTheOwnersIMessages) {
  MessagesStore store(storePath());
  const auto chat = store.chat("+1555", "iMessage");
  const auto sms = store.chat("+1666", "SMS");
  store.message({.guid = "read", .chat = chat, .text = "a", .date = appleNanoseconds(now), .isFromMe = true,
                 .dateRead = appleNanoseconds(now + 9s), .dateDelivered = appleNanoseconds(now + 2s), .isDelivered = true});
  store.message({.guid = "delivered", .chat = chat, .text = "b", .date = appleNanoseconds(now), .isFromMe = true,
                 .dateDelivered = appleNanoseconds(now + 5s), .isDelivered = true});
  store.message({.guid = "undelivered flag", .chat = chat, .text = "c", .date = appleNanoseconds(now), .isFromMe = true,
                 .dateDelivered = appleNanoseconds(now + 5s), .isDelivered = false});
  store.message({.guid = "inbound", .chat = chat, .text = "d", .date = appleNanoseconds(now),
                 .dateRead = appleNanoseconds(now + 5s)});
  store.message({.guid = "sms", .chat = sms, .text = "e", .date = appleNanoseconds(now), .isFromMe = true, .service = "SMS",
                 .dateDelivered = appleNanoseconds(now + 5s), .isDelivered = true});
  store.message({.guid = "reaction", .chat = chat, .text = "f", .date = appleNanoseconds(now), .isFromMe = true,
                 .associatedType = 2000, .associatedGuid = "read", .dateDelivered = appleNanoseconds(now + 5s),
                 .isDelivered = true});
  store.close();

  const auto readout = database().receipts(0, now - 1h, 10);
  ASSERT_TRUE(readout) << readout.error().description();
  ASSERT_EQ(readout->rows.size(), 2u);
  EXPECT_EQ(readout->rows[0].guid, "delivered");
  EXPECT_EQ(readout->rows[0].status, "delivered");
  EXPECT_EQ(readout->rows[0].at, now + 5s);
  EXPECT_EQ(readout->rows[1].guid, "read");
  EXPECT_EQ(readout->rows[1].status, "read");
  EXPECT_EQ(readout->rows[1].changedAt, appleNanoseconds(now + 9s));
  EXPECT_FALSE(readout->rows[1].isSMS);

  const auto newer = database().receipts(appleNanoseconds(now + 5s), now - 1h, 10);
  ASSERT_TRUE(newer);
  ASSERT_EQ(newer->rows.size(), 1u);
  EXPECT_EQ(newer->rows[0].guid, "read");
  EXPECT_TRUE(database().receipts(0, now + 1s, 10)->rows.empty()) << "sent before sentSince";
}

TEST_F(ChatDatabaseTest, OutboundSendsAndReplyAddressesComeFromTheStore) {
  MessagesStore store(storePath());
  const auto ann = store.handle("+15550001");
  const auto chat = store.chat("+15550001", "iMessage", {ann});
  store.message({.guid = "before", .chat = chat, .text = "x", .date = appleNanoseconds(now - 1s), .isFromMe = true});
  store.message({.guid = "failed", .chat = chat, .text = "x", .date = appleNanoseconds(now), .isFromMe = true,
                 .error = 22});
  store.message({.guid = "sent", .chat = chat, .text = "x", .date = appleNanoseconds(now + 1s), .isFromMe = true,
                 .isSent = true});
  store.message({.guid = "their sms", .chat = chat, .handle = ann, .text = "y", .date = appleNanoseconds(now - 5s),
                 .service = "SMS"});
  store.message({.guid = "their imessage", .chat = chat, .handle = ann, .text = "y", .date = appleNanoseconds(now - 9s)});
  store.message({.guid = "no service", .chat = chat, .handle = ann, .text = "y", .date = appleNanoseconds(now), .service = ""});
  store.close();

  const auto sends = database().outboundSends(now, 10);
  ASSERT_TRUE(sends) << sends.error().description();
  ASSERT_EQ(sends->rows.size(), 2u);
  EXPECT_EQ(sends->rows[0].guid, "failed");
  EXPECT_EQ(sends->rows[0].errorCode, 22);
  EXPECT_FALSE(sends->rows[0].isSent);
  EXPECT_EQ(sends->rows[1].guid, "sent");
  EXPECT_TRUE(sends->rows[1].isSent);
  EXPECT_EQ(sends->rows[1].chatIdentifier, "+15550001");
  EXPECT_EQ(sends->rows[1].date, now + 1s);

  const auto address = database().replyAddress("+15550001");
  ASSERT_TRUE(address);
  EXPECT_EQ(address->guid, "iMessage;-;+15550001");
  EXPECT_EQ(address->theirNewestService, "SMS");
  EXPECT_EQ(database().conversationGuid("+15550001").value(), "iMessage;-;+15550001");
  const auto unknown = database().replyAddress("+19999");
  ASSERT_TRUE(unknown);
  EXPECT_EQ(unknown->guid, std::nullopt);
  EXPECT_EQ(unknown->theirNewestService, std::nullopt);
  EXPECT_EQ(database().conversationGuid("+19999").value(), std::nullopt);
}

TEST_F(ChatDatabaseTest, AttachmentBytesStopOneByteAfterTheLimit) {
  const auto file = (home_.path() / "video.mov").string();
  const std::string video(200'000, 'v');
  std::ofstream(file, std::ios::binary) << video;
  EXPECT_EQ(ChatDatabase::attachmentBytes(file, 200'000).value(), video);
  EXPECT_EQ(ChatDatabase::attachmentBytes(file, 199'999).value(), std::nullopt);
  EXPECT_EQ(ChatDatabase::attachmentBytes(file, 1 << 16).value(), std::nullopt);
  EXPECT_EQ(ChatDatabase::attachmentBytes(file + ".gone", 1000).value(), std::nullopt);
  std::ofstream(file, std::ios::binary | std::ios::trunc);
  EXPECT_EQ(ChatDatabase::attachmentBytes(file, 10).value(), std::string());
}

TEST(ChatDatabaseRules, ServicesTapbacksAndTargets) {
  EXPECT_FALSE(ChatDatabase::filesAsSMS("iMessage"));
  EXPECT_FALSE(ChatDatabase::filesAsSMS("IMESSAGE"));
  EXPECT_TRUE(ChatDatabase::filesAsSMS("SMS"));
  EXPECT_TRUE(ChatDatabase::filesAsSMS(std::nullopt));

  using Meaning = ChatDatabase::TapbackMeaning;
  EXPECT_EQ(ChatDatabase::tapbackMeaning(2000, std::nullopt), (Meaning{true, "❤️"}));
  EXPECT_EQ(ChatDatabase::tapbackMeaning(2004, "🦖"), (Meaning{true, "‼️"}));
  EXPECT_EQ(ChatDatabase::tapbackMeaning(2005, std::nullopt), (Meaning{true, "❓"}));
  EXPECT_EQ(ChatDatabase::tapbackMeaning(2006, "  "), std::nullopt);
  EXPECT_EQ(ChatDatabase::tapbackMeaning(2006, std::nullopt), std::nullopt);
  EXPECT_EQ(ChatDatabase::tapbackMeaning(3000, std::nullopt), (Meaning{false, std::nullopt}));
  EXPECT_EQ(ChatDatabase::tapbackMeaning(3006, "🦖"), (Meaning{false, std::nullopt}));
  EXPECT_EQ(ChatDatabase::tapbackMeaning(2007, "🦖"), std::nullopt);
  EXPECT_EQ(ChatDatabase::tapbackMeaning(0, std::nullopt), std::nullopt);

  EXPECT_EQ(ChatDatabase::targetGuid("p:0/ABC-1"), "ABC-1");
  EXPECT_EQ(ChatDatabase::targetGuid("p:12/ABC/2"), "ABC/2");
  EXPECT_EQ(ChatDatabase::targetGuid(" bp:ABC-1\n"), "ABC-1");
  EXPECT_EQ(ChatDatabase::targetGuid("ABC-1"), "ABC-1");
  EXPECT_EQ(ChatDatabase::targetGuid("p:0"), std::nullopt);
  EXPECT_EQ(ChatDatabase::targetGuid("bp:"), std::nullopt);
  EXPECT_EQ(ChatDatabase::targetGuid("   "), std::nullopt);
}

}  // namespace
}  // namespace quarl

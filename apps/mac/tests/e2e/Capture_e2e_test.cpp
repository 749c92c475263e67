#include <boost/asio/io_context.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <fstream>
#include <thread>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/CapturingLogSink.h"
#include "../support/DevBrainAdmin.h"
#include "../support/FakeCompanionHost.h"
#include "../support/HostHome.h"
#include "../support/MemorySettingsStore.h"
#include "../support/MessagesStore.h"
#include "../support/TemporaryDirectory.h"
#include "Base64.h"
#include "DateText.h"
#include "MessagesCapture.h"
#include "SettingsKeys.h"

namespace quarl {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// devbrain and what it was handed, for the capture of this process and for quarl-companion --once run in a
// temporary HOME holding a Messages store.
class CaptureAgainstDevBrain : public ::testing::Test {
 protected:
  CaptureAgainstDevBrain() : admin_(brain_) {}

  json::array ingested() { return admin_.get("/admin/ingested").as_array(); }
  std::vector<std::string> ingestedIds() {
    std::vector<std::string> ids;
    for (const auto& body : ingested()) ids.emplace_back(body.at("externalMessageId").as_string());
    return ids;
  }
  json::object ingestOf(const std::string& guid) {
    for (const auto& body : ingested()) if (body.at("externalMessageId") == guid.c_str()) return body.as_object();
    ADD_FAILURE() << "no ingest of " << guid;
    return {};
  }
  // A date as the store keeps it, `before` now.
  std::int64_t ago(SystemTime::duration before) const { return testing::appleNanoseconds(now_ - before); }

  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  // Whole milliseconds: the stored cursor keeps no more.
  const SystemTime now_ = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
};

// Claims every outbound message whose text starts with "relayed".
struct RelayedPrefix final : OwnSends {
  bool claim(const ChatDatabase::Message& message) override { return message.text.starts_with("relayed"); }
};

// The capture of this process against devbrain and a real store holding Ann's conversation
// (handle 1, chat 1) and an SMS one (chat 2).
class MessagesCaptureAgainstDevBrain : public CaptureAgainstDevBrain {
 protected:
  MessagesCaptureAgainstDevBrain() {
    testing::MessagesStore store(storePath());
    store.chat("+15550001", "iMessage", {store.handle("+15550001")});
    store.chat("+15550003", "SMS");
    const auto issued = admin_.post("/admin/devices");
    const auto text = [&](const char* key) { return std::string(issued.at(key).as_string()); };
    client_ = std::make_unique<BrainClient>(io_.get_executor(), brain_.baseURL(), ClientIdentity{"linux", 1, "0.1.0", "test", "Linux"},
                                            Credentials{text("accessToken"), text("refreshToken"), text("deviceId")},
                                            std::make_shared<BeastHttpTransport>(io_.get_executor()), clock_, nullptr);
  }

  std::string storePath() const { return (folder_.path() / "chat.db").string(); }
  // Adds rows to the store, as Messages does while it runs.
  void add(const std::vector<testing::MessageRow>& rows) {
    testing::MessagesStore store(storePath(), testing::MessagesSchema::tahoe, testing::MessagesStore::Opening::existing);
    for (const auto& row : rows) store.message(row);
  }
  MessagesCapture::End capture(const CaptureChannels& channels) { return testing::runAwaitable(io_, capture_.capture(*client_, channels)); }
  void livePass(const CaptureChannels& channels) { testing::runAwaitable(io_, capture_.captureRecentFirst(*client_, channels)); }
  std::optional<CaptureCursor> cursor() { return CaptureCursor::decoded(*defaults_->read(keys::captureCursor)); }

  testing::TemporaryDirectory folder_;
  boost::asio::io_context io_;
  std::shared_ptr<SystemClock> clock_ = std::make_shared<SystemClock>();
  std::shared_ptr<testing::MemorySettingsStore> defaults_ = std::make_shared<testing::MemorySettingsStore>();
  std::shared_ptr<testing::FakeCompanionHost> host_ = std::make_shared<testing::FakeCompanionHost>(clock_);
  std::shared_ptr<testing::CapturingLogSink> log_ = testing::CapturingLogSink::installed();
  std::unique_ptr<BrainClient> client_;
  MessagesCapture capture_{clock_, defaults_, host_, storePath()};
  const CaptureChannels channels_{"ch-imessage", "ch-sms"}, noSms_{"ch-imessage", std::nullopt};
};

TEST_F(MessagesCaptureAgainstDevBrain, FilesEachMessageOnceUnderItsChannelAndTheLivePassLeavesTheBacklogsPlace) {
  host_->contacts["+15550001"] = "Ann Example";
  capture_.setOwnSends(std::make_shared<RelayedPrefix>());
  add({{.guid = "old", .chat = 1, .handle = 1, .text = "old", .date = ago(5h)},
       {.guid = "mine", .chat = 1, .text = "relayed by Quarl", .date = ago(2h), .isFromMe = true},
       {.guid = "s1", .chat = 2, .text = "sms", .date = ago(55min), .service = "SMS"},
       {.guid = "m1", .chat = 1, .handle = 1, .text = "one", .date = ago(50min)}});
  defaults_->write(keys::captureCursor, CaptureCursor{now_ - 6h}.encoded());
  livePass(noSms_);
  EXPECT_THAT(ingestedIds(), ElementsAre("m1"));
  EXPECT_EQ(ingestOf("m1").at("senderDisplayName"), "Ann Example");
  EXPECT_EQ(cursor()->lastMessageDate, now_ - 6h) << "a clipped window keeps the backlog's place";
  EXPECT_THAT(log_->lines(), Contains("quarl: live pass sent 1 recent message(s)"));

  capture(noSms_);
  EXPECT_THAT(ingestedIds(), ElementsAre("m1", "old"));
  EXPECT_THAT(log_->lines(), Contains(HasSubstr(", DROPPED 1 SMS because the SMS channel is not connected, 1 already sent")));
  EXPECT_EQ(capture_.report()->droppedSms, 1);
  EXPECT_EQ(cursor()->lastMessageDate, now_ - 50min - 5s);

  // The overlap reads the newest rows again; nothing goes twice.
  capture(noSms_);
  livePass(noSms_);
  EXPECT_EQ(admin_.get("/admin/stats").at("duplicateIngests"), 0);
}

TEST_F(MessagesCaptureAgainstDevBrain, TheCursorPassesOnlyWhatTheServiceTookOrRefusedForGood) {
  add({{.guid = "first", .chat = 1, .text = "first", .date = ago(50min)},
       {.guid = "second", .chat = 1, .text = "second", .date = ago(40min)}});
  // A failure that would fail every message the same way ends the pass before that message.
  const std::vector<json::object> everyMessageFails{
      {{"status", 503}}, {{"drop", true}}, {{"status", 408}}, {{"status", 429}}, {{"status", 403}}, {{"status", 404}},
      {{"status", 422}, {"body", R"({"code":"channel_disabled","message":"off"})"}},
  };
  for (auto fault : everyMessageFails) {
    fault["path"] = "/v1/ingest";
    admin_.post("/admin/faults", fault);
    capture(channels_);
    EXPECT_TRUE(ingestedIds().empty()) << json::serialize(fault);
    EXPECT_LT(cursor().value_or(CaptureCursor{now_}).lastMessageDate, now_ - 50min) << json::serialize(fault);
    EXPECT_NE(capture_.report()->kind, ChatDatabaseCaptureReport::Kind::ok) << json::serialize(fault);
  }
  EXPECT_THAT(log_->lines(), Contains("quarl: capture stopped before message first — 503 error: The request was refused."));

  // A session that is gone stops the message events too.
  admin_.post("/admin/faults", {{"path", "/v1/ingest"}, {"status", 401}});
  admin_.post("/admin/faults", {{"path", "/v1/auth/refresh"}, {"status", 400}});
  const auto eventsBefore = admin_.requestsTo("/v1/ingest/message-events");
  EXPECT_EQ(capture(channels_), MessagesCapture::End::sessionGone);
  EXPECT_EQ(admin_.requestsTo("/v1/ingest/message-events"), eventsBefore);
  EXPECT_TRUE(ingestedIds().empty());

  // The first message taken after one refused is passed over, counted and named.
  admin_.post("/admin/faults", {{"path", "/v1/ingest"}, {"status", 422}, {"skip", 1},
                                {"body", R"({"code":"unprocessable","message":"no"})"}});
  capture(channels_);
  EXPECT_THAT(ingestedIds(), ElementsAre("first"));
  EXPECT_EQ(std::pair(capture_.report()->failed, capture_.report()->kind), std::pair(1, ChatDatabaseCaptureReport::Kind::ingestRefused));
  EXPECT_EQ(cursor()->lastMessageDate, now_ - 40min - 5s);
  EXPECT_THAT(log_->lines(), Contains(HasSubstr("quarl: capture: Quarl refused message second — 422 unprocessable: no")));

  // Each refusal of one record in a live pass goes on with the next.
  auto at = now_ - 30min;
  for (const int status : {400, 409, 413, 422}) {
    const auto refused = "refused-" + std::to_string(status), taken = "taken-" + std::to_string(status);
    add({{.guid = refused, .chat = 1, .text = "x", .date = testing::appleNanoseconds(at += 1min)},
         {.guid = taken, .chat = 1, .text = "y", .date = testing::appleNanoseconds(at += 1min)}});
    admin_.post("/admin/faults", {{"path", "/v1/ingest"}, {"status", status}, {"times", 1}});
    livePass(channels_);
    EXPECT_THAT(ingestedIds(), ::testing::AllOf(Contains(taken), ::testing::Not(Contains(refused)))) << status;
    EXPECT_EQ(cursor()->lastMessageDate, at - 5s) << status;
  }
  EXPECT_EQ(admin_.get("/admin/stats").at("duplicateIngests"), 0);
}

// While no copy of the store can be made, a pass that reads says so; one that has nothing to read
// does not try. A reaction that waits for its time keeps the tick reading the same store.
TEST_F(MessagesCaptureAgainstDevBrain, AStoreNothingWroteToIsNotReadAgainWhileNothingWaits) {
  const auto failures = [&] {
    const auto lines = log_->lines();
    return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
      return line.starts_with("quarl: capture could not read Messages") || line.starts_with("quarl: live pass failed");
    });
  };
  // Snapshots go to TMPDIR; pointed at a file, none can be made. Put back however the test ends.
  struct Copies {
    Copies() {
      std::ofstream(notAFolder) << "x";
      if (const char* set = std::getenv("TMPDIR")) before = set;
    }
    ~Copies() { possible(true); }
    void possible(bool yes) const {
      if (!yes) ::setenv("TMPDIR", notAFolder.c_str(), 1);
      if (yes && before) ::setenv("TMPDIR", before->c_str(), 1);
      if (yes && !before) ::unsetenv("TMPDIR");
    }
    testing::TemporaryDirectory folder;
    fs::path notAFolder = folder.path() / "file";
    std::optional<std::string> before;
  } copy;
  const auto copies = [&](bool possible) { copy.possible(possible); };

  const auto reactionAt = now_ + 3s;
  add({{.guid = "m1", .chat = 1, .handle = 1, .text = "one", .date = ago(10min)},
       {.guid = "like", .chat = 1, .handle = 1, .text = "Liked “one”", .date = testing::appleNanoseconds(reactionAt),
        .associatedType = 2001, .associatedGuid = "p:0/m1"}});
  capture(channels_);
  livePass(channels_);
  EXPECT_THAT(ingestedIds(), ElementsAre("m1"));
  copies(false);
  livePass(channels_);
  EXPECT_EQ(failures(), 0) << "the live pass read it all";
  capture(channels_);
  EXPECT_EQ(failures(), 1) << "the tick reads again while the reaction waits";

  copies(true);
  std::this_thread::sleep_until(std::chrono::system_clock::time_point(reactionAt.time_since_epoch()) + 100ms);
  capture(channels_);
  EXPECT_THAT(json::serialize(admin_.get("/admin/events")), HasSubstr(R"("messageExternalId":"m1","emoji":"👍")"));
  copies(false);
  capture(channels_);
  livePass(channels_);
  EXPECT_EQ(failures(), 1) << "nothing waits and nothing was written";

  add({{.guid = "m2", .chat = 1, .handle = 1, .text = "two", .date = ago(1min)}});
  livePass(channels_);
  EXPECT_EQ(failures(), 2) << "a write is read";
  copies(true);
  livePass(channels_);
  EXPECT_THAT(ingestedIds(), ElementsAre("m1", "m2"));
  capture(noSms_);
  copies(false);
  capture(channels_);
  EXPECT_EQ(failures(), 3) << "the SMS channel came back: what was left for it may be read now";
}

TEST_F(CaptureAgainstDevBrain, AStoreReachesTheServiceAsTheWireRulesSayAndOnlyOnce) {
  admin_.post("/admin/settings", {{"autoApprove", true}, {"pairingIntervalSeconds", 0}});
  const testing::HostHome home(brain_);
  std::ofstream(home.path() / "IMG_0001.heic", std::ios::binary) << "HEICBYTES";
  fs::resize_file((std::ofstream(home.path() / "exact.mov"), home.path() / "exact.mov"), 26'214'400);
  fs::resize_file((std::ofstream(home.path() / "over.mov"), home.path() / "over.mov"), 26'214'401);
  {
    testing::MessagesStore store(home.store());
    const auto ann = store.handle("+15550001"), bob = store.handle("bob@example.com"), cat = store.handle("+15550003", "SMS");
    const auto direct = store.chat("+15550001", "iMessage", {ann, store.handle("+15550009")});
    const auto group = store.chat("chat77", "iMessage", {ann, bob, cat}, "Climbing");
    store.message({.guid = "in-1", .chat = direct, .handle = ann, .text = "hello", .date = ago(3h)});
    store.message({.guid = "out-1", .chat = direct, .text = "hi back", .date = ago(170min), .isFromMe = true});
    store.message({.guid = "group-1", .chat = group, .handle = bob, .text = "", .attributedBody = testing::typedStreamBody("belay?"),
                   .date = ago(2h)});
    store.message({.guid = "sms-1", .chat = store.chat("+15550003", "SMS", {cat}), .handle = cat, .text = "sms here",
                   .date = ago(100min), .service = "SMS"});
    const auto files = store.message({.guid = "files-1", .chat = direct, .handle = ann, .date = ago(90min)});
    store.attachment(files, {.guid = "att-pic", .filename = "~/IMG_0001.heic", .transferName = "IMG_0001.heic",
                             .mimeType = "image/heic", .totalBytes = 9});
    store.attachment(files, {.guid = "att-exact", .filename = "~/exact.mov", .transferName = "exact.mov", .totalBytes = 26'214'400});
    store.attachment(files, {.guid = "att-over", .filename = "~/over.mov", .transferName = "over.mov", .totalBytes = 26'214'401});
    store.attachment(files, {.guid = "att-gone", .filename = "/nowhere/gone.png", .transferName = "gone.png", .totalBytes = 5});
    store.message({.guid = "read-me", .chat = direct, .text = "did you see", .date = ago(80min), .isFromMe = true,
                   .dateRead = ago(70min), .dateDelivered = ago(79min), .isDelivered = true});
    store.message({.guid = "love", .chat = direct, .handle = ann, .text = "Loved “hello”", .date = ago(60min),
                   .associatedType = 2000, .associatedGuid = "p:0/in-1"});
  }

  const auto [code, log] = home.runOnce();
  ASSERT_EQ(code, 0) << log;
  const auto heartbeat = admin_.lastBodyTo("/v1/relay/heartbeat");
  EXPECT_THAT(json::serialize(heartbeat.at("channels")), ::testing::AllOf(HasSubstr("imessage"), HasSubstr("sms")));
  EXPECT_TRUE(heartbeat.at("blockedReason").is_null()) << "a store in its place is read";
  EXPECT_EQ(ingested().size(), 6u) << log;
  EXPECT_EQ(ingestOf("in-1"), json::parse(R"({"channelId":"ch-imessage","externalThreadId":"+15550001",
      "externalMessageId":"in-1","direction":"inbound","body":"hello","sentAt":")" + iso8601(now_ - 3h) + R"(",
      "threadKind":"direct","senderIdentifier":"+15550001","senderIdentifierKind":"phone"})"));
  const auto out = ingestOf("out-1"), inGroup = ingestOf("group-1"), sms = ingestOf("sms-1");
  EXPECT_EQ(json::serialize(json::array{out.at("direction"), out.contains("senderIdentifier"), inGroup.at("body"),
                                        inGroup.at("threadKind"), inGroup.at("threadTitle"), inGroup.at("senderIdentifierKind"),
                                        sms.at("channelId")}), R"(["outbound",false,"belay?","group","Climbing","email","ch-sms"])");
  const auto attachments = ingestOf("files-1").at("attachments").as_array();
  ASSERT_EQ(attachments.size(), 4u);
  EXPECT_EQ(attachments[0], json::parse(R"({"externalId":"att-pic","filename":"IMG_0001.heic","mimeType":"image/heic","sizeBytes":9})"));

  const auto uploads = admin_.get("/admin/uploads").as_object();
  EXPECT_EQ(uploads.at("att-pic").at("dataBase64").as_string(), base64Encode("HEICBYTES"));
  EXPECT_EQ(uploads.at("att-exact").at("sizeBytes"), 26'214'400);
  EXPECT_FALSE(uploads.contains("att-over"));
  EXPECT_THAT(log, HasSubstr("quarl: attachment (<private>) not readable — absent from this Mac, or over the 25 MB limit"));
  EXPECT_THAT(log, HasSubstr("quarl: capture files: 2 sent, 0 not wanted, 2 failed, 0 not named by Quarl"));

  const auto events = json::serialize(admin_.get("/admin/events"));
  EXPECT_THAT(events, HasSubstr(R"({"kind":"reaction","reactorKey":"+15550001","mode":"add","messageExternalId":"in-1","emoji":"❤️","channelId":"ch-imessage"})"));
  EXPECT_THAT(events, HasSubstr(R"({"kind":"status","status":"read","messageExternalId":"read-me","channelId":"ch-imessage"})"));

  // A second run hands over nothing again; devbrain counts a message it already holds as a duplicate.
  const auto again = home.runOnce();
  ASSERT_EQ(again.code, 0) << again.log;
  EXPECT_EQ(admin_.get("/admin/stats").at("duplicateIngests"), 0) << again.log;
  EXPECT_EQ(json::serialize(admin_.get("/admin/events")), events);
}

}  // namespace
}  // namespace quarl

#include <boost/asio/io_context.hpp>
#include <boost/json/serialize.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/CapturingLogSink.h"
#include "../support/DevBrainAdmin.h"
#include "../support/FakeCompanionHost.h"
#include "../support/MemorySettingsStore.h"
#include "../support/MessagesStore.h"
#include "../support/TemporaryDirectory.h"
#include "MessagesCapture.h"
#include "SettingsKeys.h"

namespace quarl {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::HasSubstr;

// Claims every outbound message whose text starts with "relayed".
class RelayedPrefix final : public OwnSends {
 public:
  bool claim(const ChatDatabase::Message& message) override { return message.text.starts_with("relayed"); }
};

// The capture of this process against a real devbrain and a real store.
class MessagesCaptureAgainstDevBrain : public ::testing::Test {
 protected:
  MessagesCaptureAgainstDevBrain() : admin_(brain_) {
    const auto issued = admin_.post("/admin/devices");
    client_ = std::make_unique<BrainClient>(
        io_.get_executor(), brain_.baseURL(), ClientIdentity{"linux", 1, "0.1.0", "test", "Linux"},
        Credentials{std::string(issued.at("accessToken").as_string()), std::string(issued.at("refreshToken").as_string()),
                    std::string(issued.at("deviceId").as_string())},
        std::make_shared<BeastHttpTransport>(io_.get_executor()), clock_, nullptr);
  }

  std::string storePath() const { return (folder_.path() / "chat.db").string(); }
  void capture(const CaptureChannels& channels) { testing::runAwaitable(io_, capture_.capture(*client_, channels)); }
  void livePass(const CaptureChannels& channels) {
    testing::runAwaitable(io_, capture_.captureRecentFirst(*client_, channels));
  }
  std::vector<std::string> ingestedIds() {
    std::vector<std::string> ids;
    const auto ingested = admin_.get("/admin/ingested");
    for (const auto& body : ingested.as_array()) ids.emplace_back(body.at("externalMessageId").as_string());
    return ids;
  }
  std::optional<CaptureCursor> cursor() { return CaptureCursor::decoded(*defaults_->read(keys::captureCursor)); }

  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::TemporaryDirectory folder_;
  boost::asio::io_context io_;
  std::shared_ptr<SystemClock> clock_ = std::make_shared<SystemClock>();
  std::shared_ptr<testing::MemorySettingsStore> defaults_ = std::make_shared<testing::MemorySettingsStore>();
  std::shared_ptr<testing::FakeCompanionHost> host_ = std::make_shared<testing::FakeCompanionHost>(clock_);
  std::shared_ptr<testing::CapturingLogSink> log_ = testing::CapturingLogSink::installed();
  std::unique_ptr<BrainClient> client_;
  MessagesCapture capture_{clock_, defaults_, host_, storePath()};
  // Whole milliseconds: the stored cursor keeps no more.
  const SystemTime now_ = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
};

TEST_F(MessagesCaptureAgainstDevBrain, FilesEachMessageOnceUnderItsChannelAndKeepsItsPlaceWhenTheServiceIsAway) {
  host_->contacts["+15550001"] = "Ann Example";
  capture_.setOwnSends(std::make_shared<RelayedPrefix>());
  {
    testing::MessagesStore store(storePath());
    const auto ann = store.handle("+15550001");
    const auto direct = store.chat("+15550001", "iMessage", {ann});
    const auto sms = store.chat("+15550003", "SMS");
    store.message({.guid = "m1", .chat = direct, .handle = ann, .text = "one", .date = testing::appleNanoseconds(now_ - 50min)});
    store.message({.guid = "s1", .chat = sms, .text = "sms", .date = testing::appleNanoseconds(now_ - 40min), .service = "SMS"});
    store.message({.guid = "mine", .chat = direct, .text = "relayed by Quarl", .date = testing::appleNanoseconds(now_ - 30min),
                   .isFromMe = true});
  }
  const CaptureChannels noSms{"ch-imessage", std::nullopt};
  capture(noSms);
  EXPECT_THAT(ingestedIds(), ::testing::ElementsAre("m1"));
  const auto lines = log_->lines();
  EXPECT_THAT(lines, Contains(HasSubstr(", DROPPED 1 SMS because the SMS channel is not connected, 1 already sent")));
  EXPECT_THAT(lines, Contains("quarl: capture recognised its own send in <private>"));
  EXPECT_EQ(admin_.get("/admin/ingested").as_array().at(0).at("senderDisplayName"), "Ann Example");
  EXPECT_EQ(capture_.report()->droppedSms, 1);
  EXPECT_EQ(cursor()->lastMessageDate, now_ - 30min - 5s);

  // The overlap reads the newest rows again; nothing goes twice.
  capture(noSms);
  livePass(noSms);
  EXPECT_EQ(admin_.get("/admin/stats").at("duplicateIngests"), 0);

}

TEST_F(MessagesCaptureAgainstDevBrain, TheCursorPassesOnlyWhatTheServiceTookOrRefusedForGood) {
  const CaptureChannels channels{"ch-imessage", "ch-sms"};
  {
    testing::MessagesStore store(storePath());
    const auto chat = store.chat("+15550001", "iMessage");
    store.message({.guid = "first", .chat = chat, .text = "first", .date = testing::appleNanoseconds(now_ - 50min)});
    store.message({.guid = "second", .chat = chat, .text = "second", .date = testing::appleNanoseconds(now_ - 40min)});
  }
  // A failure that would fail every message the same way ends the pass before that message.
  const std::vector<json::object> everyMessageFails{
      {{"status", 503}},
      {{"drop", true}},
      {{"status", 408}},
      {{"status", 429}},
      {{"status", 403}},
      {{"status", 404}},
      {{"status", 422}, {"body", R"({"code":"channel_disabled","message":"off"})"}},
  };
  for (const auto& fault : everyMessageFails) {
    auto withPath = fault;
    withPath["path"] = "/v1/ingest";
    admin_.post("/admin/faults", withPath);
    capture(channels);
    EXPECT_TRUE(ingestedIds().empty()) << json::serialize(fault);
    EXPECT_LT(cursor().value_or(CaptureCursor{now_}).lastMessageDate, now_ - 50min) << json::serialize(fault);
    EXPECT_NE(capture_.report()->kind, ChatDatabaseCaptureReport::Kind::ok);
  }
  EXPECT_THAT(log_->lines(), Contains("quarl: capture stopped before message first — 503 error: The request was refused."));

  // A session that is gone stops the message events too.
  admin_.post("/admin/faults", {{"path", "/v1/ingest"}, {"status", 401}});
  admin_.post("/admin/faults", {{"path", "/v1/auth/refresh"}, {"status", 400}});
  const auto eventsBefore = admin_.requestsTo("/v1/ingest/message-events");
  EXPECT_EQ(testing::runAwaitable(io_, capture_.capture(*client_, channels)), MessagesCapture::End::sessionGone);
  EXPECT_EQ(admin_.requestsTo("/v1/ingest/message-events"), eventsBefore);
  EXPECT_TRUE(ingestedIds().empty());

  // The first message taken after one refused is passed over, counted and named.
  admin_.post("/admin/faults", {{"path", "/v1/ingest"}, {"status", 422}, {"skip", 1},
                                {"body", R"({"code":"unprocessable","message":"no"})"}});
  capture(channels);
  EXPECT_THAT(ingestedIds(), ::testing::ElementsAre("first"));
  EXPECT_EQ(capture_.report()->failed, 1);
  EXPECT_EQ(capture_.report()->kind, ChatDatabaseCaptureReport::Kind::ingestRefused);
  EXPECT_EQ(cursor()->lastMessageDate, now_ - 40min - 5s);
  EXPECT_THAT(log_->lines(), Contains(HasSubstr("quarl: capture: Quarl refused message second — 422 unprocessable: no")));

  // Each refusal of one record in a live pass goes on with the next.
  auto at = now_ - 30min;
  for (const int status : {400, 409, 413, 422}) {
    const auto refused = "refused-" + std::to_string(status);
    const auto taken = "taken-" + std::to_string(status);
    {
      testing::MessagesStore store(storePath(), testing::MessagesSchema::tahoe, testing::MessagesStore::Opening::existing);
      store.message({.guid = refused, .chat = 1, .text = "x", .date = testing::appleNanoseconds(at += 1min)});
      store.message({.guid = taken, .chat = 1, .text = "y", .date = testing::appleNanoseconds(at += 1min)});
    }
    admin_.post("/admin/faults", {{"path", "/v1/ingest"}, {"status", status}, {"times", 1}});
    livePass(channels);
    EXPECT_THAT(ingestedIds(), ::testing::AllOf(Contains(taken), ::testing::Not(Contains(refused)))) << status;
    EXPECT_EQ(cursor()->lastMessageDate, at - 5s) << status;
  }
  EXPECT_EQ(admin_.get("/admin/stats").at("duplicateIngests"), 0);
}

TEST_F(MessagesCaptureAgainstDevBrain, TheLivePassReadsOnlyTheLastHourAndLeavesTheBacklogsPlace) {
  {
    testing::MessagesStore store(storePath());
    const auto chat = store.chat("+15550001", "iMessage");
    store.message({.guid = "old", .chat = chat, .text = "old", .date = testing::appleNanoseconds(now_ - 5h)});
    store.message({.guid = "new", .chat = chat, .text = "new", .date = testing::appleNanoseconds(now_ - 10min)});
  }
  defaults_->write(keys::captureCursor, CaptureCursor{now_ - 6h}.encoded());
  const CaptureChannels channels{"ch-imessage", "ch-sms"};
  livePass(channels);
  EXPECT_THAT(ingestedIds(), ::testing::ElementsAre("new"));
  EXPECT_EQ(cursor()->lastMessageDate, now_ - 6h) << "a clipped window keeps the backlog's place";
  EXPECT_THAT(log_->lines(), Contains("quarl: live pass sent 1 recent message(s)"));
  capture(channels);
  EXPECT_THAT(ingestedIds(), ::testing::ElementsAre("new", "old"));
  EXPECT_EQ(admin_.get("/admin/stats").at("duplicateIngests"), 0);
  EXPECT_EQ(cursor()->lastMessageDate, now_ - 10min - 5s);
}

}  // namespace
}  // namespace quarl

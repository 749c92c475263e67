#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/DevBrainAdmin.h"
#include "../support/HostHome.h"
#include "../support/MessagesStore.h"
#include "Base64.h"
#include "DateText.h"

namespace quarl {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
using namespace std::chrono_literals;
using ::testing::HasSubstr;

// quarl-companion --once in a temporary HOME holding a Messages store, against devbrain that
// approves the pairing at once.
class CaptureAgainstDevBrain : public ::testing::Test {
 protected:
  CaptureAgainstDevBrain() : admin_(brain_), home_(brain_) {
    admin_.post("/admin/settings", {{"autoApprove", true}, {"pairingIntervalSeconds", 0}});
  }

  fs::path messages() const { return home_.messages(); }
  std::pair<int, std::string> runOnce() {
    const auto run = home_.runOnce();
    return {run.code, run.log};
  }

  json::array ingested() { return admin_.get("/admin/ingested").as_array(); }

  json::object ingestOf(const std::string& guid) {
    for (const auto& body : ingested()) {
      if (body.at("externalMessageId") == guid.c_str()) return body.as_object();
    }
    ADD_FAILURE() << "no ingest of " << guid;
    return {};
  }

  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::HostHome home_;
  const SystemTime now_ = std::chrono::time_point_cast<SystemTime::duration>(std::chrono::system_clock::now());
};

TEST_F(CaptureAgainstDevBrain, AStoreReachesTheServiceAsTheWireRulesSayAndOnlyOnce) {
  const auto picture = home_.path() / "IMG_0001.heic";
  std::ofstream(picture, std::ios::binary) << "HEICBYTES";
  const auto exact = home_.path() / "exact.mov";
  const auto over = home_.path() / "over.mov";
  fs::resize_file((std::ofstream(exact), exact), 26'214'400);
  fs::resize_file((std::ofstream(over), over), 26'214'401);
  {
    testing::MessagesStore store(messages() / "chat.db");
    const auto ann = store.handle("+15550001");
    const auto bob = store.handle("bob@example.com");
    const auto cat = store.handle("+15550003", "SMS");
    const auto direct = store.chat("+15550001", "iMessage", {ann, store.handle("+15550009")});
    const auto group = store.chat("chat77", "iMessage", {ann, bob, cat}, "Climbing");
    const auto sms = store.chat("+15550003", "SMS", {cat});
    using testing::appleNanoseconds;
    store.message({.guid = "in-1", .chat = direct, .handle = ann, .text = "hello", .date = appleNanoseconds(now_ - 3h)});
    store.message({.guid = "out-1", .chat = direct, .text = "hi back", .date = appleNanoseconds(now_ - 170min),
                   .isFromMe = true});
    store.message({.guid = "group-1", .chat = group, .handle = bob, .text = "", .attributedBody = testing::typedStreamBody("belay?"),
                   .date = appleNanoseconds(now_ - 2h)});
    store.message({.guid = "sms-1", .chat = sms, .handle = cat, .text = "sms here", .date = appleNanoseconds(now_ - 100min),
                   .service = "SMS"});
    const auto files = store.message({.guid = "files-1", .chat = direct, .handle = ann, .date = appleNanoseconds(now_ - 90min)});
    store.attachment(files, {.guid = "att-pic", .filename = "~/IMG_0001.heic", .transferName = "IMG_0001.heic",
                             .mimeType = "image/heic", .totalBytes = 9});
    store.attachment(files, {.guid = "att-exact", .filename = exact.string(), .transferName = "exact.mov",
                             .totalBytes = 26'214'400});
    store.attachment(files, {.guid = "att-over", .filename = over.string(), .transferName = "over.mov",
                             .totalBytes = 26'214'401});
    store.attachment(files, {.guid = "att-gone", .filename = "/nowhere/gone.png", .transferName = "gone.png",
                             .totalBytes = 5});
    store.message({.guid = "read-me", .chat = direct, .text = "did you see", .date = appleNanoseconds(now_ - 80min),
                   .isFromMe = true, .dateRead = appleNanoseconds(now_ - 70min),
                   .dateDelivered = appleNanoseconds(now_ - 79min), .isDelivered = true});
    store.message({.guid = "love", .chat = direct, .handle = ann, .text = "Loved “hello”", .date = appleNanoseconds(now_ - 60min),
                   .associatedType = 2000, .associatedGuid = "p:0/in-1"});
  }

  const auto [code, log] = runOnce();
  ASSERT_EQ(code, 0) << log;
  EXPECT_EQ(ingested().size(), 6u) << log;

  EXPECT_EQ(ingestOf("in-1"), json::parse(R"({"channelId":"ch-imessage","externalThreadId":"+15550001",
      "externalMessageId":"in-1","direction":"inbound","body":"hello","sentAt":")" + iso8601(now_ - 3h) + R"(",
      "threadKind":"direct","senderIdentifier":"+15550001","senderIdentifierKind":"phone"})"));
  const auto outbound = ingestOf("out-1");
  EXPECT_EQ(outbound.at("direction"), "outbound");
  EXPECT_FALSE(outbound.contains("senderIdentifier"));
  const auto inGroup = ingestOf("group-1");
  EXPECT_EQ(inGroup.at("body"), "belay?");
  EXPECT_EQ(inGroup.at("threadKind"), "group");
  EXPECT_EQ(inGroup.at("threadTitle"), "Climbing");
  EXPECT_EQ(inGroup.at("senderIdentifierKind"), "email");
  EXPECT_EQ(ingestOf("sms-1").at("channelId"), "ch-sms");
  const auto withFiles = ingestOf("files-1");
  EXPECT_EQ(withFiles.at("body"), "");
  ASSERT_EQ(withFiles.at("attachments").as_array().size(), 4u);
  EXPECT_EQ(withFiles.at("attachments").as_array()[0],
            json::parse(R"({"externalId":"att-pic","filename":"IMG_0001.heic","mimeType":"image/heic","sizeBytes":9})"));

  const auto uploads = admin_.get("/admin/uploads").as_object();
  EXPECT_EQ(uploads.at("att-pic").at("dataBase64").as_string(), base64Encode("HEICBYTES"));
  EXPECT_EQ(uploads.at("att-exact").at("sizeBytes"), 26'214'400);
  EXPECT_FALSE(uploads.contains("att-over"));
  EXPECT_THAT(log, HasSubstr("quarl: attachment (<private>) not readable — absent from this Mac, or over the 25 MB limit"));
  EXPECT_THAT(log, HasSubstr("quarl: capture files: 2 sent, 0 not wanted, 2 failed, 0 not named by Quarl"));

  const auto events = admin_.get("/admin/events").as_array();
  EXPECT_THAT(json::serialize(events), HasSubstr(R"({"kind":"reaction","reactorKey":"+15550001","mode":"add","messageExternalId":"in-1","emoji":"❤️","channelId":"ch-imessage"})"));
  EXPECT_THAT(json::serialize(events), HasSubstr(R"({"kind":"status","status":"read","messageExternalId":"read-me","channelId":"ch-imessage"})"));
  EXPECT_THAT(log, HasSubstr("message events — 1 receipt(s) sent, 0 batch(es) failed, 0 tapback(s) unreadable, 0 on a channel not connected"));

  // A second run hands over nothing new; a row that reached the log since is captured.
  const auto [again, secondLog] = runOnce();
  ASSERT_EQ(again, 0) << secondLog;
  EXPECT_EQ(ingested().size(), 6u) << secondLog;
  EXPECT_EQ(admin_.get("/admin/events").as_array().size(), events.size());
  {
    testing::MessagesStore store(messages() / "chat.db", testing::MessagesSchema::tahoe,
                                 testing::MessagesStore::Opening::existing);
    store.message({.guid = "late-1", .chat = 1, .handle = 1, .text = "one more", .date = testing::appleNanoseconds(now_ - 1min)});
  }
  ASSERT_GT(fs::file_size(messages() / "chat.db-wal"), 0u);
  const auto [third, thirdLog] = runOnce();
  ASSERT_EQ(third, 0) << thirdLog;
  ASSERT_EQ(ingested().size(), 7u) << thirdLog;
  EXPECT_EQ(ingested().back().at("externalMessageId"), "late-1");
}

}  // namespace
}  // namespace quarl

#include "WhatsAppCapture.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_future.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <gmock/gmock.h>

#include "../tests/support/CapturingLogSink.h"
#include "../tests/support/FakeWhatsAppPage.h"
#include "../tests/support/ManualClock.h"
#include "../tests/support/MemorySettingsStore.h"
#include "../tests/support/ScriptedTransport.h"
#include "SettingsKeys.h"

namespace quarl {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

json::object record(const std::string& id, const std::string& chat, bool peek = false) {
  return json::object{{"id", id}, {"conv", "447700900123@c.us"}, {"fromMe", false}, {"t", 1795000000},
                      {"text", "words of " + id}, {"chat", chat}, {"peek", peek}, {"title", "Ada"}};
}

// A page whose capture script read two messages by opening chat "ka" and one without opening "kb".
std::string readAnswer() {
  return json::serialize(json::object{{"ok", true}, {"stage", "read"}, {"opened", 1}, {"changed", 1},
                                      {"harvested", json::array{"ka"}}, {"peeked", json::array{"kb"}},
                                      {"fingerprints", json::array{"ka|2", "kb|1"}}, {"listed", json::array{"ka", "kb"}},
                                      {"messages", json::array{record("A1", "ka"), record("A2", "ka"),
                                                               record("B1", "kb", true)}}});
}

class WhatsAppCaptureOnAManualClock : public ::testing::Test {
 protected:
  WhatsAppCaptureOnAManualClock() {
    defaults_->write(keys::whatsappEnabled, true);
    defaults_->write(keys::whatsappSweepVersion, 1);
    defaults_->writeStrings(keys::whatsappRowPrints, {"ka|1", "kb|1"});
    page_->asyncResult = {readAnswer(), std::nullopt};
  }

  WhatsAppCapture::End pass(std::shared_ptr<testing::ScriptedTransport> service) {
    BrainClient client(io_.get_executor(), "https://api.quarl.app", ClientIdentity{"macOS", 1, "1.0", "Mac", "26"},
                       Credentials{"access", "refresh", "device-1"}, service, clock_, nullptr);
    auto done = boost::asio::co_spawn(io_, capture_.capture(*session_, client, "ch-whatsapp"), boost::asio::use_future);
    // The script's time limit is kept on the manual clock: time moves until the pass and its
    // limit have both ended.
    for (int second = 0; second < 400; ++second) {
      io_.restart();
      io_.poll();
      if (io_.stopped()) break;
      clock_->advance(1s);
    }
    return done.get();
  }

  std::vector<std::string> ingested(const testing::ScriptedTransport& service) {
    std::vector<std::string> ids;
    for (const auto& body : service.bodiesTo("/v1/ingest")) ids.emplace_back(body.at("externalMessageId").as_string());
    return ids;
  }

  boost::asio::io_context io_;
  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>(SystemTime(1800000000s));
  std::shared_ptr<testing::MemorySettingsStore> defaults_ = std::make_shared<testing::MemorySettingsStore>();
  std::shared_ptr<testing::FakeWhatsAppPage> page_ = std::make_shared<testing::FakeWhatsAppPage>();
  std::shared_ptr<WhatsAppSession> session_ = WhatsAppSession::create(io_.get_executor(), clock_, defaults_, page_);
  WhatsAppCapture capture_{clock_, defaults_};
  std::shared_ptr<testing::CapturingLogSink> log_ = testing::CapturingLogSink::installed();
};

TEST_F(WhatsAppCaptureOnAManualClock, ARevokedSessionEndsThePassAndWhatWasNotHandedOverIsReadAgainAfterPairing) {
  page_->clock = clock_;
  auto revoked = std::make_shared<testing::ScriptedTransport>("https://api.quarl.app", clock_);
  revoked->answer("/v1/ingest", 200, R"({"attachments":[]})");
  revoked->answer("/v1/ingest", 400, R"({"code":"invalid_token","message":"This device is no longer paired."})");
  EXPECT_EQ(pass(revoked), WhatsAppCapture::End::sessionGone);
  EXPECT_THAT(ingested(*revoked), ElementsAre("A1", "A2")) << "nothing after the refusal is tried";
  EXPECT_EQ(page_->calls.size(), 1u);
  EXPECT_EQ(page_->calls.front().second.at("catchUp"), false);

  // The opened chat leaves the baseline and the peeked one is due again, so both are read.
  EXPECT_THAT(defaults_->strings(keys::whatsappRowPrints).value_or(std::vector<std::string>{}), ElementsAre("kb|1", "ka|"));
  EXPECT_EQ(log_->linesContaining("1 handed over, 1 FAILED, 1 not tried"), 1);

  // Paired again, with a fresh process: nothing goes twice, and what was not handed over goes.
  WhatsAppCapture restarted{clock_, defaults_};
  std::swap(capture_, restarted);
  auto paired = std::make_shared<testing::ScriptedTransport>("https://api.quarl.app", clock_);
  for (int i = 0; i < 2; ++i) paired->answer("/v1/ingest", 200, R"({"attachments":[]})");
  EXPECT_EQ(pass(paired), WhatsAppCapture::End::done);
  EXPECT_THAT(ingested(*paired), ElementsAre("A2", "B1"));
  const auto& asked = page_->calls.back().second;
  EXPECT_EQ(asked.at("known"), (json::array{"kb|1", "ka|"}));
  EXPECT_EQ(asked.at("peek"), (json::array{"kb"}));
  EXPECT_EQ(pass(paired), WhatsAppCapture::End::done);
  EXPECT_EQ(ingested(*paired).size(), 2u) << "a third read of the same page hands nothing over";

  const auto sent = paired->bodiesTo("/v1/ingest").front().as_object();
  EXPECT_EQ(sent.at("channelId"), "ch-whatsapp");
  EXPECT_EQ(sent.at("externalThreadId"), "447700900123@c.us");
  EXPECT_EQ(sent.at("direction"), "inbound");
  EXPECT_EQ(sent.at("threadKind"), "direct");
  EXPECT_EQ(sent.at("senderIdentifier"), "+447700900123");
  EXPECT_EQ(sent.at("senderIdentifierKind"), "phone");
  EXPECT_EQ(sent.at("senderDisplayName"), "Ada");
  EXPECT_FALSE(sent.contains("threadTitle")) << "a direct chat's name is its person, not a thread title";
}

TEST(WhatsAppIngest, AGroupMessageNamesItsAuthorAndTitleAndItsFileByTheMessage) {
  WhatsAppWeb::Message message;
  message.externalId = "3EB0F9";
  message.conversationRef = "120363025@g.us";
  message.authorRef = "5511@lid";
  message.conversationTitle = "Climbing";
  message.text = "the rope";
  WhatsAppWeb::Attachment file;
  file.type = "image";
  file.mime = "image/jpeg";
  file.viewOnce = true;
  message.attachments.push_back(file);
  const auto ingest = ingestMessageFor(message, "ch-whatsapp", SystemTime(1800000000s));
  EXPECT_EQ(ingest.threadKind, "group");
  EXPECT_EQ(ingest.threadTitle, "Climbing");
  EXPECT_EQ(ingest.senderIdentifier, "5511@lid");
  EXPECT_EQ(ingest.senderIdentifierKind, std::nullopt) << "a linked id is no phone number";
  EXPECT_EQ(ingest.sentAt, SystemTime(1800000000s)) << "no time from the page: when it was read";
  ASSERT_EQ(ingest.attachments.size(), 1u);
  EXPECT_EQ(ingest.attachments[0].externalId, "3EB0F9");
  EXPECT_EQ(ingest.attachments[0].filename, "image.jpeg");
  EXPECT_TRUE(ingest.attachments[0].ephemeral);
}

}  // namespace
}  // namespace quarl

#include "RelayRecords.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include "Base64.h"

namespace quarl {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;

TEST(RelayRecords, AnIngestBodyCarriesOnlyTheFactsItHas) {
  IngestMessage message{.channelId = "ch-imessage",
                        .externalThreadId = "+15550001",
                        .externalMessageId = "GUID-1",
                        .direction = "inbound",
                        .body = "hello",
                        .sentAt = SystemTime(1700000000s + 5ms),
                        .senderIdentifierKind = "phone",
                        .threadKind = "direct",
                        .threadTitle = ""};
  EXPECT_EQ(ingestBody(message), json::parse(R"({"channelId":"ch-imessage","externalThreadId":"+15550001",
      "externalMessageId":"GUID-1","direction":"inbound","body":"hello","sentAt":"2023-11-14T22:13:20.005Z",
      "threadKind":"direct"})"));

  message.senderIdentifier = "+15550001";
  message.threadTitle = "Climbing";
  message.sentViaQuarl = true;
  message.attachments = {{"A1", "a.heic", "image/heic", 10}, {"A2", "s.png", "image/png", 3, "sticker", true, true, 0}};
  const auto body = ingestBody(message);
  EXPECT_EQ(body.at("senderIdentifier"), "+15550001");
  EXPECT_EQ(body.at("senderIdentifierKind"), "phone");
  EXPECT_EQ(body.at("threadTitle"), "Climbing");
  EXPECT_EQ(body.at("sentViaQuarl"), true);
  EXPECT_EQ(body.at("attachments"), json::parse(R"([{"externalId":"A1","filename":"a.heic","mimeType":"image/heic",
      "sizeBytes":10},{"externalId":"A2","filename":"s.png","mimeType":"image/png","sizeBytes":3,
      "providerHint":"sticker","sensitive":true,"ephemeral":true,"durationSeconds":0}])"));
}

TEST(RelayRecords, FailureReasonsAreFittedByCharactersAsPeopleCountThem) {
  const std::string flags300 = [] {
    std::string text;
    for (int i = 0; i < 300; ++i) text += "🇫🇷";
    return text;
  }();
  EXPECT_EQ(fitFailureReason(flags300), flags300);
  const auto fitted = fitFailureReason(flags300 + "x");
  EXPECT_EQ(fitted, flags300.substr(0, 297 * 8) + "...");
  EXPECT_EQ(fitFailureReason("short"), "short");
  EXPECT_EQ(jobReportBody(true, std::nullopt, std::nullopt), json::parse(R"({"ok":true})"));
  EXPECT_EQ(jobReportBody(false, "no", "P-1"), json::parse(R"({"ok":false,"failureReason":"no","providerMessageId":"P-1"})"));
}

TEST(RelayRecords, JobsAndDecisionsDecodeAndFetchedBytesAreChecked) {
  const auto claim = json::value_to<ClaimResponse>(json::parse(R"({"jobs":[{"id":"J1","channelKind":"imessage",
      "threadId":"T","conversationRef":"+1555","body":"hi","attachments":[{"id":"F1","filename":"a.txt",
      "mimeType":"text/plain","sizeBytes":2}],"waitingSeconds":4,"attempts":1}]})"));
  ASSERT_EQ(claim.jobs.size(), 1u);
  EXPECT_EQ(claim.jobs[0].conversationName, std::nullopt);
  EXPECT_EQ(claim.jobs[0].files.at(0).sizeBytes, 2);
  EXPECT_FALSE(json::try_value_to<ClaimResponse>(json::parse(R"({"jobs":[{"id":"J1"}]})")));

  const auto decisions = json::value_to<IngestResponse>(
      json::parse(R"({"attachments":[{"externalId":"A1","wantBytes":true},{"wantBytes":false,"reason":"too big"}]})"));
  ASSERT_EQ(decisions.attachments.size(), 2u);
  EXPECT_EQ(decisions.attachments[0].id, "A1");
  EXPECT_EQ(decisions.attachments[1].reason, "too big");

  FetchedAttachment fetched{"F1", "a.txt", "text/plain", 10, base64Encode("123456789")};
  EXPECT_EQ(checkedBytes(fetched).problem, "the file arrived 9 bytes long where 10 were promised");
  fetched.dataBase64 = "not base64!";
  EXPECT_EQ(checkedBytes(fetched).problem, "the file arrived with no readable bytes");
  fetched.dataBase64 = "";
  EXPECT_EQ(checkedBytes(fetched).problem, "the file arrived with no readable bytes");
  fetched.dataBase64 = base64Encode("0123456789");
  ASSERT_TRUE(checkedBytes(fetched).file);
  EXPECT_EQ(checkedBytes(fetched).file->bytes, "0123456789");
}

}  // namespace
}  // namespace quarl

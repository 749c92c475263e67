#include "RelayRecords.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include "Base64.h"

namespace quarl {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;

TEST(RelayRecords, IngestAndReportBodiesCarryOnlyTheFactsTheyHave) {
  IngestMessage message{.channelId = "ch-imessage", .externalThreadId = "+15550001", .externalMessageId = "GUID-1",
                        .direction = "inbound", .body = "hello", .sentAt = SystemTime(1700000000s + 5ms),
                        .senderIdentifierKind = "phone", .threadKind = "direct", .threadTitle = ""};
  const std::string bare = R"({"channelId":"ch-imessage","externalThreadId":"+15550001","externalMessageId":"GUID-1",
      "direction":"inbound","body":"hello","sentAt":"2023-11-14T22:13:20.005Z","threadKind":"direct")";
  EXPECT_EQ(ingestBody(message), json::parse(bare + "}")) << "no kind without an identifier, no empty title";

  message.senderIdentifier = "+15550001";
  message.threadTitle = "Climbing";
  message.sentViaQuarl = true;
  message.attachments = {{"A1", "a.heic", "image/heic", 10}, {"A2", "s.png", "image/png", 3, "sticker", true, true, 0}};
  EXPECT_EQ(ingestBody(message), json::parse(bare + R"(,"senderIdentifier":"+15550001","senderIdentifierKind":"phone",
      "threadTitle":"Climbing","sentViaQuarl":true,"attachments":[{"externalId":"A1","filename":"a.heic",
      "mimeType":"image/heic","sizeBytes":10},{"externalId":"A2","filename":"s.png","mimeType":"image/png","sizeBytes":3,
      "providerHint":"sticker","sensitive":true,"ephemeral":true,"durationSeconds":0}]})"));

  // A report's failure reason is fitted by characters as people count them.
  std::string flags300;
  for (int i = 0; i < 300; ++i) flags300 += "🇫🇷";
  EXPECT_EQ(fitFailureReason(flags300), flags300);
  EXPECT_EQ(jobReportBody(false, flags300 + "x", "P-1"),
            (json::object{{"ok", false}, {"failureReason", flags300.substr(0, 297 * 8) + "..."}, {"providerMessageId", "P-1"}}));
  EXPECT_EQ(jobReportBody(true, std::nullopt, std::nullopt), json::parse(R"({"ok":true})"));
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

  for (const auto& [data, problem] : std::vector<std::pair<std::string, std::string>>{
           {base64Encode("123456789"), "the file arrived 9 bytes long where 10 were promised"},
           {"not base64!", "the file arrived with no readable bytes"}, {"", "the file arrived with no readable bytes"}}) {
    EXPECT_EQ(checkedBytes({"F1", "a.txt", "text/plain", 10, data}).problem, problem);
  }
  EXPECT_EQ(checkedBytes({"F1", "a.txt", "text/plain", 10, base64Encode("0123456789")}).file.value().bytes, "0123456789");
}

}  // namespace
}  // namespace quarl

#include "Heartbeat.h"

#include <boost/json/parse.hpp>
#include <boost/json/value_to.hpp>
#include <gtest/gtest.h>

namespace quarl {
namespace {

namespace json = boost::json;

TEST(Heartbeat, TheBodyAlwaysNamesTheBlockedReasonAndLeavesOutWhatWasNotGiven) {
  HeartbeatReport report;
  report.channels = {"imessage", "sms"};
  auto body = heartbeatBody(report);
  EXPECT_EQ(body, json::parse(R"({"channels":["imessage","sms"],"blockedReason":null})"));

  report.blockedReason = "Quarl needs Full Disk Access.";
  report.device = json::object{{"installId", "i-1"}};
  report.nudgeNotices = true;
  body = heartbeatBody(report);
  EXPECT_EQ(body.at("blockedReason"), "Quarl needs Full Disk Access.");
  EXPECT_EQ(body.at("device").at("installId"), "i-1");
  EXPECT_EQ(body.at("nudgeNotices"), true);
  EXPECT_FALSE(body.contains("capture"));
  EXPECT_FALSE(body.contains("operator"));
  EXPECT_FALSE(body.contains("chatDb"));
}

TEST(Heartbeat, AnswersDecodeWithTheirOptionalPartsAndRefuseWrongTypes) {
  const auto full = json::try_value_to<HeartbeatResponse>(json::parse(R"({
      "channels": ["imessage"], "waitingJobs": 2, "needsYou": 1, "followUpCount": null,
      "channelIds": {"imessage": "ch-1"}, "unmatched": ["sms"],
      "nudge": {"turnId": "t", "title": "Hi", "body": "There"}, "macPermissionMode": "ask"})"));
  ASSERT_TRUE(full);
  EXPECT_EQ(full->waitingJobs, 2);
  EXPECT_EQ(full->needsYou, 1);
  EXPECT_EQ(full->followUpCount, std::nullopt);
  EXPECT_EQ(full->channelIds->at("imessage"), "ch-1");
  EXPECT_EQ(full->unmatched, (std::vector<std::string>{"sms"}));
  EXPECT_EQ(full->nudge->title, "Hi");
  EXPECT_EQ(full->macPermissionMode, "ask");

  const auto bare = json::try_value_to<HeartbeatResponse>(json::parse(R"({"channels": [], "waitingJobs": 0})"));
  ASSERT_TRUE(bare);
  EXPECT_EQ(bare->channelIds, std::nullopt);

  EXPECT_FALSE(json::try_value_to<HeartbeatResponse>(json::parse(R"({"channels": []})")));
  EXPECT_FALSE(json::try_value_to<HeartbeatResponse>(json::parse(R"({"channels": "imessage", "waitingJobs": 0})")));
  EXPECT_FALSE(json::try_value_to<HeartbeatResponse>(
      json::parse(R"({"channels": [], "waitingJobs": 0, "channelIds": {"sms": 5}})")));
  EXPECT_FALSE(json::try_value_to<HeartbeatResponse>(json::parse("[]")));
}

}  // namespace
}  // namespace quarl

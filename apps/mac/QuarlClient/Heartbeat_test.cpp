#include "Heartbeat.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

namespace quarl {
namespace {

namespace json = boost::json;

TEST(Heartbeat, TheBodyAlwaysNamesTheBlockedReasonAndLeavesOutWhatWasNotGivenAndAnswersDecodeStrictly) {
  HeartbeatReport report;
  report.channels = {"imessage", "sms"};
  EXPECT_EQ(heartbeatBody(report), json::parse(R"({"channels":["imessage","sms"],"blockedReason":null})"));
  report.blockedReason = "Quarl needs Full Disk Access.";
  report.operatorCaps = json::object{{"displays", 1}};
  report.device = json::object{{"installId", "i-1"}};
  report.nudgeNotices = true;
  EXPECT_EQ(heartbeatBody(report), json::parse(R"({"channels":["imessage","sms"],"blockedReason":"Quarl needs Full Disk Access.",
      "operator":{"displays":1},"device":{"installId":"i-1"},"nudgeNotices":true})"));

  // Answers decode with their optional parts and refuse wrong types.
  const auto full = json::value_to<HeartbeatResponse>(json::parse(R"({
      "channels": ["imessage"], "waitingJobs": 2, "needsYou": 1, "followUpCount": null,
      "channelIds": {"imessage": "ch-1"}, "unmatched": ["sms"],
      "nudge": {"turnId": "t", "title": "Hi", "body": "There"}, "macPermissionMode": "ask"})"));
  EXPECT_EQ(full.waitingJobs, 2);
  EXPECT_EQ(full.needsYou, 1);
  EXPECT_EQ(full.followUpCount, std::nullopt);
  EXPECT_EQ(full.channelIds, (std::map<std::string, std::string>{{"imessage", "ch-1"}}));
  EXPECT_EQ(full.unmatched, (std::vector<std::string>{"sms"}));
  EXPECT_EQ(full.nudge.value().title, "Hi");
  EXPECT_EQ(full.macPermissionMode, "ask");
  EXPECT_EQ(json::value_to<HeartbeatResponse>(json::parse(R"({"channels": [], "waitingJobs": 0})")).channelIds, std::nullopt);
  for (const char* wrong : {R"({"channels": []})", R"({"channels": "imessage", "waitingJobs": 0})",
                            R"({"channels": [], "waitingJobs": 0, "channelIds": {"sms": 5}})", "[]"}) {
    EXPECT_FALSE(json::try_value_to<HeartbeatResponse>(json::parse(wrong))) << wrong;
  }
}

}  // namespace
}  // namespace quarl

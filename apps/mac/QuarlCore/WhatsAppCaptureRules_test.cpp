#include "WhatsAppCaptureRules.h"

#include <boost/json/parse.hpp>
#include <gmock/gmock.h>

namespace quarl::WhatsAppWeb {
namespace {

Message message(std::string id) {
  Message made;
  made.externalId = std::move(id);
  return made;
}

TEST(WhatsAppCaptureRules, TheEightHundredAndFirstHandedOverIdPushesOutTheOldestAndTheRestSurviveARestart) {
  SentMessages sent;
  for (int i = 1; i <= 801; ++i) sent.record(message("id" + std::to_string(i)), i == 2 || i == 801);
  EXPECT_FALSE(sent.alreadySent(message("id1")));
  EXPECT_TRUE(sent.alreadySent(message("id2")));
  EXPECT_TRUE(sent.alreadySent(message("id801")));
  EXPECT_EQ(sent.ids().size(), SentMessages::memory);
  sent.record(message("id2"));
  EXPECT_EQ(sent.ids().size(), SentMessages::memory) << "an id handed over again is not a second entry";

  const auto restored = SentMessages::restored(sent.saved());
  ASSERT_TRUE(restored);
  EXPECT_EQ(restored->ids(), sent.ids());
  EXPECT_EQ(restored->bytesOwed(), (std::set<std::string>{"id2", "id801"}));
  auto later = *restored;
  later.record(message("id802"));
  EXPECT_FALSE(later.alreadySent(message("id2"))) << "the order survives too: the oldest still goes first";
  EXPECT_EQ(later.bytesOwed(), std::set<std::string>{"id801"}) << "a forgotten id owes nothing";
  later.fileDelivered("id801");
  EXPECT_TRUE(later.bytesOwed().empty());

  for (const auto* broken : {R"(null)", R"({"order":[1],"bytesOwed":[]})", R"({"order":[]})"}) {
    EXPECT_FALSE(SentMessages::restored(boost::json::parse(broken))) << broken;
  }
}

TEST(WhatsAppCaptureRules, AChatShowingABlankRowIsOpenedAgainUntilItsTenTriesAreSpent) {
  RetryBudget budget;
  ReadResult blank;
  blank.harvested = {"blank", "fine"};
  blank.heldBack = {"blank"};
  for (int pass = 1; pass < RetryBudget::defaultLimit; ++pass) {
    budget.record(blank);
    EXPECT_FALSE(budget.isSpent("blank")) << pass;
  }
  budget.record(blank);
  EXPECT_TRUE(budget.isSpent("blank"));
  EXPECT_TRUE(budget.hasRunOut("blank"));
  EXPECT_EQ(budget.spent(), std::vector<std::string>{"blank"});
  budget.spend("blank");
  EXPECT_TRUE(budget.isSpent("blank"));
  EXPECT_FALSE(budget.hasRunOut("blank")) << "only the pass that used the last try ran it out";

  // Once its words arrive, the chat is opened and not held back: its tries start again.
  ReadResult words;
  words.harvested = {"blank"};
  budget.record(words);
  EXPECT_TRUE(budget.spent().empty());
  EXPECT_FALSE(budget.isSpent("fine"));
}

using namespace std::chrono_literals;
const SystemTime start{1'800'000'000s};

ReadResult peekedAt(std::vector<std::string> keys, std::map<std::string, std::vector<std::string>> waiting = {},
                    std::map<std::string, std::vector<std::string>> resolved = {}) {
  ReadResult result;
  result.peeked = std::move(keys);
  result.waitingTags = std::move(waiting);
  result.resolvedTags = std::move(resolved);
  return result;
}

TEST(WhatsAppCaptureRules, TheSlowLaneGoesFirstUpToItsShareThenTheLongestUnreadUpToSixAChat) {
  PeekSchedule schedule;
  const std::vector<std::string> listed{"a", "b", "c", "d", "e", "f", "g", "h"};
  EXPECT_EQ(schedule.due(listed, start), (std::vector<std::string>{"a", "b", "c", "d", "e", "f"}))
      << "never read: list order";

  // Four chats hold a message still decrypting; the rest were read at different times.
  schedule.record(peekedAt({"e", "f", "g", "h"}, {{"e", {"m1"}}, {"f", {"m2"}}, {"g", {"m3"}}, {"h", {"m4"}}}), listed, start);
  schedule.record(peekedAt({"c"}), listed, start + 10s);
  schedule.record(peekedAt({"b"}), listed, start + 20s);
  schedule.record(peekedAt({"a", "d"}), listed, start + 30s);
  EXPECT_TRUE(schedule.due(listed, start + 40s).empty()) << "nothing is due within a minute";
  EXPECT_EQ(schedule.due(listed, start + 70s), (std::vector<std::string>{"e", "f", "g"}))
      << "a minute on, only the slow lane, and only its share of it";
  EXPECT_EQ(schedule.due(listed, start + 320s), (std::vector<std::string>{"e", "f", "g", "h", "c", "b"}))
      << "five minutes on, the rest by how long they have been unread";
  EXPECT_EQ(boost::json::value(schedule.watching()),
            boost::json::parse(R"({"e":["m1"],"f":["m2"],"g":["m3"],"h":["m4"]})"));

  // A tag that decrypted leaves the slow lane; one still waiting after six hours is given up.
  schedule.record(peekedAt({"e", "f"}, {{"f", {"m2"}}}, {{"e", {"m1"}}}), listed, start + 400s);
  EXPECT_FALSE(schedule.waitingSince.count("e"));
  schedule.record(peekedAt({"f"}, {{"f", {"m2"}}}), listed, start + PeekSchedule::slowLimit);
  EXPECT_EQ(schedule.gaveUpLastPass, 3) << "f, g and h; e's wait had ended";
  EXPECT_EQ(schedule.abandoned.at("f"), std::vector<std::string>{"m2"});
  EXPECT_TRUE(schedule.waitingFor.empty());
}

TEST(WhatsAppCaptureRules, AChatGoneFromTheListForAWeekIsForgottenAndTheScheduleSurvivesARestart) {
  PeekSchedule schedule;
  schedule.record(peekedAt({"old", "kept"}, {{"old", {"m9"}}}), {"old", "kept"}, start);
  Message handed;
  handed.externalId = "3EB0";
  handed.chatKey = "kept";
  for (int i = 0; i < 50; ++i) schedule.handedOver(handed, "t" + std::to_string(i));
  EXPECT_EQ(schedule.handed.at("kept").size(), PeekSchedule::handedKept);
  EXPECT_EQ(schedule.handed.at("kept").front(), "t10") << "the oldest tags go first";

  schedule.record(ReadResult{}, {"kept"}, start + PeekSchedule::forgetAfter - 1s);
  EXPECT_TRUE(schedule.present.count("old")) << "not yet a week";
  const auto restored = PeekSchedule::restored(schedule.saved());
  ASSERT_TRUE(restored);
  EXPECT_EQ(restored->saved(), schedule.saved());
  schedule.record(ReadResult{}, {"kept"}, start + PeekSchedule::forgetAfter);
  EXPECT_FALSE(schedule.present.count("old"));
  EXPECT_FALSE(schedule.lastRead.count("old"));
  EXPECT_TRUE(schedule.lastRead.count("kept"));

  EXPECT_FALSE(PeekSchedule::restored(boost::json::parse(R"({"version":2})"))) << "another version starts afresh";
  EXPECT_FALSE(PeekSchedule::restored(boost::json::parse(R"({"version":1,"lastRead":{"a":"soon"}})")));
}

TEST(WhatsAppCaptureRules, OnlyLostCredentialsOrALostChannelStopThePass) {
  for (const auto* code : {"reuse_detected", "invalid_token", "channel_disabled"}) EXPECT_TRUE(failureStopsTheRest(code)) << code;
  for (const auto* code : {"rate_limited", "bad_request", "internal", ""}) EXPECT_FALSE(failureStopsTheRest(code)) << code;
  EXPECT_TRUE(failureIsTheChannel("channel_disabled"));
  EXPECT_FALSE(failureIsTheChannel("invalid_token"));
}

}  // namespace
}  // namespace quarl::WhatsAppWeb

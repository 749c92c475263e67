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

TEST(WhatsAppCaptureRules, ARowsPrintNamesItsChatBeforeTheBar) {
  EXPECT_EQ(chatKey("k1x9a|2f0qz"), "k1x9a");
  EXPECT_EQ(chatKey("k1x9a|"), "k1x9a");
  EXPECT_EQ(chatKey("k1x9a"), "k1x9a") << "a print without a bar is all key";
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

TEST(WhatsAppCaptureRules, OnlyLostCredentialsOrALostChannelStopThePass) {
  for (const auto* code : {"reuse_detected", "invalid_token", "channel_disabled"}) EXPECT_TRUE(failureStopsTheRest(code)) << code;
  for (const auto* code : {"rate_limited", "bad_request", "internal", ""}) EXPECT_FALSE(failureStopsTheRest(code)) << code;
  EXPECT_TRUE(failureIsTheChannel("channel_disabled"));
  EXPECT_FALSE(failureIsTheChannel("invalid_token"));
}

}  // namespace
}  // namespace quarl::WhatsAppWeb

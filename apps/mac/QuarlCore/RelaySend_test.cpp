#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include "../tests/support/RunAwaitable.h"
#include "RelayJobReporting.h"

#include "RelaySendConfirmation.h"
#include "RelaySendLedger.h"
#include "ReplyService.h"

namespace quarl {
namespace {

using namespace std::chrono_literals;
const SystemTime now(1'790'000'000s);

ChatDatabase::SendRecord row(std::string chat, std::int64_t error, bool sent) {
  return {"G", std::move(chat), now, error, sent};
}

TEST(RelaySendConfirmation, VerdictsCountTheRowsOfTheSameConversationOnly) {
  EXPECT_EQ(RelaySendConfirmation::expectedRows(1, "   \n"), 1);
  EXPECT_EQ(RelaySendConfirmation::expectedRows(2, "hi"), 3);
  EXPECT_EQ(RelaySendConfirmation::expectedRows(0, ""), 1);

  const auto refused = RelaySendConfirmation::verdict({row("+15550001", 22, false), row("+15550001", 0, true)}, "+15550001", 2);
  const auto* r = std::get_if<RelaySendVerdict::Refused>(&refused.value);
  ASSERT_TRUE(r);
  EXPECT_EQ(r->codes, std::vector<std::int64_t>{22});
  EXPECT_EQ(r->failedParts, 1);
  EXPECT_EQ(r->parts, 2);
  EXPECT_TRUE(refused.isFinal());

  const auto none = RelaySendConfirmation::verdict({row("+15559999", 0, true)}, "+15550001", 1);
  EXPECT_TRUE(std::holds_alternative<RelaySendVerdict::NoneWritten>(none.value)) << "another conversation's row";
  const auto fewer = RelaySendConfirmation::verdict({row("15550001", 0, true)}, "+1 (555) 0001", 2);
  EXPECT_EQ(std::get<RelaySendVerdict::Incomplete>(fewer.value).written, 1);
  const auto unmarked = RelaySendConfirmation::verdict({row("+15550001", 0, false)}, "+15550001", 1);
  EXPECT_EQ(std::get<RelaySendVerdict::Incomplete>(unmarked.value).written, 1);
  EXPECT_FALSE(unmarked.isFinal());
  EXPECT_TRUE(std::holds_alternative<RelaySendVerdict::Confirmed>(
      RelaySendConfirmation::verdict({row("+15550001", 0, true)}, "+15550001", 1).value));
}

TEST(RelaySendConfirmation, FewerRowsThanExpectedAreAFailureAndUnmarkedRowsAreNot) {
  using C = RelaySendConfirmation;
  EXPECT_TRUE(C::outcome({RelaySendVerdict::Incomplete{2, 2}}, 44s).ok);
  const auto fewer = C::outcome({RelaySendVerdict::Incomplete{1, 3}}, 44s);
  EXPECT_FALSE(fewer.ok);
  EXPECT_EQ(fewer.logClause, " DID NOT FULLY SEND — Messages wrote 1 of 3 expected row(s) within 44 s");
  EXPECT_FALSE(C::outcome({RelaySendVerdict::NoneWritten{2}}, 44s).ok);
  EXPECT_TRUE(C::outcome({RelaySendVerdict::NotObservable{"no error column"}}, 2s).ok);
  EXPECT_EQ(C::outcome({RelaySendVerdict::Refused{{22, 43}, 1, 2}}, 2s).logClause,
            " was REFUSED by Messages — 1 of 2 part(s), error 22, 43");
}

TEST(RelaySendLedger, ClaimsEachSendOnceWithinItsWindowAndMatchesNumbersByTheirDigits) {
  EXPECT_TRUE(RelaySendLedger::sameConversation("+1 (555) 010-0001", "5550100001"));
  EXPECT_TRUE(RelaySendLedger::sameConversation("Ann@Example.com", "ann@example.com"));
  EXPECT_FALSE(RelaySendLedger::sameConversation("12345", "+112345"));
  EXPECT_TRUE(RelaySendLedger::sameConversation("12345", "12345"));
  EXPECT_FALSE(RelaySendLedger::sameConversation("+15550100001", "+15550100002"));

  RelaySendLedger ledger(60s);
  ledger.record("+15550100001", "  on my way \n", now);
  ledger.record("+15550100001", "old one", now - 5min);
  EXPECT_EQ(ledger.pending(), 2u);
  EXPECT_FALSE(ledger.claim("+15550100001", "on my way?", now));
  EXPECT_TRUE(ledger.claim("5550100001", "on my way", now + 10s));
  EXPECT_FALSE(ledger.claim("5550100001", "on my way", now + 10s)) << "claimed once";
  EXPECT_FALSE(ledger.claim("+15550100001", "old one", now)) << "older than the window";
  EXPECT_EQ(ledger.pending(), 0u);
}

TEST(ReplyService, TheirNewestIMessageWinsOverTheChannel) {
  const auto sms = ReplyService::choose("sms", std::string("iMessage"));
  EXPECT_FALSE(sms.isSMS);
  EXPECT_EQ(sms.serviceType(), "iMessage");
  EXPECT_EQ(sms.because, ReplyService::theirNewestCameOverIMessage);
  EXPECT_TRUE(ReplyService::choose("sms", std::string("SMS")).isSMS);
  EXPECT_TRUE(ReplyService::choose("sms", std::nullopt).isSMS);
  const auto imessage = ReplyService::choose("imessage", std::string("SMS"));
  EXPECT_FALSE(imessage.isSMS);
  EXPECT_EQ(imessage.because, ReplyService::theChannelsOwnService);
}

struct ReportAttempts {
  int failuresLeft = 0;
  std::vector<std::chrono::seconds> slept;
  int sends = 0;
};

boost::asio::awaitable<void> recordSleep(ReportAttempts* attempts, std::chrono::seconds delay) {
  attempts->slept.push_back(delay);
  co_return;
}

boost::asio::awaitable<std::optional<std::string>> attemptReport(ReportAttempts* attempts) {
  ++attempts->sends;
  if (attempts->failuresLeft-- > 0) co_return std::string("503 unavailable");
  co_return std::nullopt;
}

RelayJobReporting::Delivery deliverWith(ReportAttempts& attempts) {
  boost::asio::io_context io;
  return testing::runAwaitable(
      io, RelayJobReporting::deliver(
              RelayJobReporting::attemptDelays, [&](std::chrono::seconds d) { return recordSleep(&attempts, d); },
              [&] { return attemptReport(&attempts); }));
}

TEST(RelayJobReporting, RetriesAfterOneFourAndTwelveSecondsThenGivesUp) {
  ReportAttempts third;
  third.failuresLeft = 2;
  const auto delivered = deliverWith(third);
  EXPECT_TRUE(delivered.delivered);
  EXPECT_EQ(delivered.attempts, 3);
  EXPECT_EQ(third.slept, (std::vector<std::chrono::seconds>{1s, 4s}));

  ReportAttempts never;
  never.failuresLeft = 100;
  const auto givenUp = deliverWith(never);
  EXPECT_FALSE(givenUp.delivered);
  EXPECT_EQ(givenUp.attempts, 4);
  EXPECT_EQ(givenUp.lastFailure, "503 unavailable");
  EXPECT_EQ(never.slept, (std::vector<std::chrono::seconds>{1s, 4s, 12s}));
}

}  // namespace
}  // namespace quarl

#include <boost/asio/io_context.hpp>
#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>

#include "../tests/support/MemorySettingsStore.h"
#include "../tests/support/RunAwaitable.h"
#include "RelayJobReporting.h"
#include "RelayJournal.h"

#include "RelaySendConfirmation.h"
#include "RelaySendLedger.h"
#include "ReplyService.h"

namespace quarl {
namespace {

using namespace std::chrono_literals;
const SystemTime now(1'790'000'000s);

ChatDatabase::SendRecord row(std::string chat, std::int64_t error, bool sent, std::string guid = "G",
                             bool carriesFile = false) {
  return {std::move(guid), std::move(chat), now, error, sent, carriesFile};
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
  const auto one = RelaySendConfirmation::verdict({row("+15550001", 0, true, "only")}, "+15550001", 1);
  EXPECT_EQ(std::get<RelaySendVerdict::Confirmed>(one.value).providerMessageId, "only");
  const auto withFiles = RelaySendConfirmation::verdict(
      {row("+15550001", 0, true, "file-1", true), row("+15550001", 0, true, "text"), row("+15550001", 0, true, "file-2", true)},
      "+15550001", 3);
  EXPECT_EQ(std::get<RelaySendVerdict::Confirmed>(withFiles.value).providerMessageId, "text") << "the text's row";
  EXPECT_EQ(RelaySendConfirmation::outcome(withFiles, 2s).providerMessageId, "text");
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

  auto store = std::make_shared<testing::MemorySettingsStore>();
  RelaySendLedger ledger(store, 60s);
  ledger.record("+15550100001", "  on my way \n", now);
  ledger.record("+15550100001", "old one", now - 5min);
  ledger.record("+15550100001", "first line\nsecond line", now);
  ledger.record("+15550100001", "never went", now);
  ledger.withdraw("+15550100001", "never went", now);
  EXPECT_EQ(ledger.pending(), 2u) << "withdrawn, and the old one is past the window";
  EXPECT_FALSE(ledger.claim("+15550100001", "on my way?", now));
  EXPECT_TRUE(ledger.claim("5550100001", "on my way", now + 10s));
  EXPECT_FALSE(ledger.claim("5550100001", "on my way", now + 10s)) << "claimed once";
  EXPECT_FALSE(ledger.claim("+15550100001", "never went", now)) << "withdrawn";

  // A restart keeps what is not claimed yet, and Messages' carriage return is a line end.
  RelaySendLedger restarted(store, 60s);
  EXPECT_EQ(restarted.pending(), 1u);
  EXPECT_TRUE(restarted.claim("+15550100001", "first line\rsecond line", now + 20s));
  EXPECT_FALSE(restarted.claim("+15550100001", "old one", now)) << "older than the window";
  EXPECT_EQ(RelaySendLedger(store, 60s).pending(), 0u);
  EXPECT_EQ(boost::json::serialize(*store->read(RelaySendLedger::key)).find("line"), std::string::npos)
      << "only digests of the words are kept";
}

TEST(RelayJournal, KeepsEachJobUntilItsReportIsTakenAcrossRestarts) {
  auto store = std::make_shared<testing::MemorySettingsStore>();
  {
    RelayJournal journal(store);
    EXPECT_TRUE(journal.begin({"job-1", "+15550001", "digest", 2, now + 1500us, std::nullopt}));
    EXPECT_TRUE(journal.begin({"job-2", "chat42", "digest", 1, now, std::nullopt}));
    journal.settle("job-2", {false, "Messages did not record this message.", std::nullopt});
  }
  RelayJournal journal(store);
  ASSERT_EQ(journal.entries().size(), 2u);
  const auto first = journal.find("job-1");
  EXPECT_EQ(first->expectedRows, 2);
  EXPECT_EQ(first->handedOverAt, now + 1ms) << "kept to the millisecond";
  EXPECT_FALSE(first->report);
  EXPECT_EQ(journal.find("job-2")->report->failureReason, "Messages did not record this message.");
  journal.remove("job-2");
  EXPECT_FALSE(RelayJournal(store).find("job-2"));
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

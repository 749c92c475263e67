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
using C = RelaySendConfirmation;
using V = RelaySendVerdict;
const SystemTime now(1'790'000'000s);

ChatDatabase::SendRecord row(std::string chat, std::int64_t error, bool sent, std::string guid = "G", bool carriesFile = false) {
  return {std::move(guid), std::move(chat), now, error, sent, carriesFile};
}

TEST(RelaySendConfirmation, VerdictsCountTheRowsOfTheSameConversationOnlyAndEachOutcomeSaysWhatHappened) {
  EXPECT_EQ((std::array{C::expectedRows(1, "   \n"), C::expectedRows(2, "hi"), C::expectedRows(0, "")}), (std::array{1, 3, 1}));

  const auto refused = C::verdict({row("+15550001", 43, false), row("+15550001", 22, false), row("+15550001", 43, false),
                                   row("+15550001", 0, true)}, "+15550001", 4);
  EXPECT_EQ(C::outcome(refused, 2s).logClause, " was REFUSED by Messages — 3 of 4 part(s), error 22, 43");
  EXPECT_TRUE(refused.isFinal());
  EXPECT_TRUE(std::holds_alternative<V::NoneWritten>(C::verdict({row("+15559999", 0, true)}, "+15550001", 1).value))
      << "another conversation's row";
  const auto unmarked = C::verdict({row("+15550001", 0, false)}, "+15550001", 1);
  EXPECT_EQ(std::get<V::Incomplete>(unmarked.value).written, 1);
  EXPECT_FALSE(unmarked.isFinal());
  EXPECT_EQ(std::get<V::Confirmed>(C::verdict({row("+15550001", 0, true, "only")}, "+15550001", 1).value).providerMessageId,
            "only");
  const auto withFiles = C::verdict(
      {row("+15550001", 0, true, "file-1", true), row("+15550001", 0, true, "text"), row("+15550001", 0, true, "file-2", true)},
      "+15550001", 3);
  EXPECT_EQ(C::outcome(withFiles, 2s).providerMessageId, "text") << "the text's row";

  // Fewer rows than expected are a failure; rows all there but unmarked are not.
  const auto fewer = C::outcome(C::verdict({row("15550001", 0, true)}, "+1 (555) 0001", 3), 44s);
  EXPECT_EQ(fewer.logClause, " DID NOT FULLY SEND — Messages wrote 1 of 3 expected row(s) within 44 s");
  EXPECT_FALSE(fewer.ok || C::outcome({V::NoneWritten{2}}, 44s).ok);
  EXPECT_TRUE(C::outcome(unmarked, 44s).ok && C::outcome({V::NotObservable{"no error column"}}, 2s).ok);
}

TEST(RelaySendLedger, ClaimsEachSendOnceWithinItsWindowAndMatchesNumbersByTheirDigits) {
  const auto same = &RelaySendLedger::sameConversation;
  EXPECT_TRUE(same("+1 (555) 010-0001", "5550100001") && same("Ann@Example.com", "ann@example.com") && same("12345", "12345"));
  EXPECT_FALSE(same("12345", "+112345")) << "short codes match only as text";
  EXPECT_FALSE(same("+15550100001", "+15550100002"));

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

  // A restart keeps what is not claimed yet, and Messages' carriage return is a line end.
  RelaySendLedger restarted(store, 60s);
  EXPECT_EQ(restarted.pending(), 1u);
  EXPECT_TRUE(restarted.claim("+15550100001", "first line\rsecond line", now + 20s));
  EXPECT_EQ(RelaySendLedger(store, 60s).pending(), 0u) << "so the old one and the withdrawn one were gone";
  EXPECT_EQ(boost::json::serialize(*store->read(RelaySendLedger::key)).find("line"), std::string::npos)
      << "only digests of the words are kept";
}

TEST(RelayJournal, KeepsEachJobUntilItsReportIsTakenAcrossRestarts) {
  auto store = std::make_shared<testing::MemorySettingsStore>();
  {
    RelayJournal journal(store);
    EXPECT_TRUE(journal.begin({"job-1", "+15550001", "digest", 2, now + 1500us, std::nullopt}) &&
                journal.begin({"job-2", "chat42", "digest", 1, now, std::nullopt}) &&
                journal.begin({"job-3", "447700900123@c.us", "digest", 1, now, std::nullopt, "whatsapp"}));
    journal.settle("job-2", {false, "Messages did not record this message.", std::nullopt});
  }
  RelayJournal journal(store);
  ASSERT_EQ(journal.entries().size(), 3u);
  // A WhatsApp job has no store to be confirmed from: its channel is kept with it.
  EXPECT_EQ(journal.find("job-3")->channelKind, "whatsapp");
  const auto first = journal.find("job-1");
  EXPECT_EQ(first->channelKind, "imessage");
  EXPECT_EQ(first->expectedRows, 2);
  EXPECT_EQ(first->handedOverAt, now + 1ms) << "kept to the millisecond";
  EXPECT_FALSE(first->report);
  EXPECT_EQ(journal.find("job-2")->report->failureReason, "Messages did not record this message.");
  journal.remove("job-2");
  EXPECT_FALSE(RelayJournal(store).find("job-2"));
}

TEST(ReplyService, TheirNewestIMessageWinsOverTheChannel) {
  const auto sms = ReplyService::choose("sms", std::string("iMessage"));
  EXPECT_EQ(sms.serviceType(), "iMessage");
  EXPECT_EQ(sms.because, ReplyService::theirNewestCameOverIMessage);
  EXPECT_EQ(ReplyService::choose("sms", std::string("SMS")).serviceType(), "SMS");
  EXPECT_EQ(ReplyService::choose("sms", std::nullopt).serviceType(), "SMS");
  const auto imessage = ReplyService::choose("imessage", std::string("SMS"));
  EXPECT_EQ(imessage.serviceType(), "iMessage");
  EXPECT_EQ(imessage.because, ReplyService::theChannelsOwnService);
}

TEST(RelayJobReporting, RetriesAfterOneFourAndTwelveSecondsThenGivesUp) {
  std::vector<std::chrono::seconds> slept;
  // Delivers a report whose first `failures` attempts fail, noting each wait in `slept`.
  const auto deliverFailing = [&slept](int failures) {
    slept.clear();
    boost::asio::io_context io;
    return testing::runAwaitable(io, RelayJobReporting::deliver(
        RelayJobReporting::attemptDelays,
        [&slept](std::chrono::seconds delay) -> boost::asio::awaitable<void> { slept.push_back(delay); co_return; },
        [failures]() mutable -> boost::asio::awaitable<std::optional<std::string>> {
          co_return failures-- > 0 ? std::optional<std::string>("503 unavailable") : std::nullopt;
        }));
  };
  const auto third = deliverFailing(2);
  EXPECT_TRUE(third.delivered);
  EXPECT_EQ(third.attempts, 3);
  EXPECT_EQ(slept, (std::vector<std::chrono::seconds>{1s, 4s}));
  const auto givenUp = deliverFailing(100);
  EXPECT_FALSE(givenUp.delivered);
  EXPECT_EQ(givenUp.attempts, 4);
  EXPECT_EQ(givenUp.lastFailure, "503 unavailable");
  EXPECT_EQ(slept, (std::vector<std::chrono::seconds>{1s, 4s, 12s}));
}

}  // namespace
}  // namespace quarl

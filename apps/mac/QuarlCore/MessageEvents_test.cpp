#include <boost/asio/io_context.hpp>
#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include "../tests/support/RunAwaitable.h"
#include "MessageEvents.h"
#include "MessageEventsPass.h"

namespace quarl {
namespace {

namespace asio = boost::asio;
namespace json = boost::json;
using namespace std::chrono_literals;
const SystemTime now(1'790'000'000s);

ChatDatabase::Tapback tapback(std::int64_t row, SystemTime date, bool isSMS = false, std::int64_t type = 2001) {
  return {row, type, "TARGET-" + std::to_string(row), "+1555", false, std::nullopt, date, isSMS};
}

TEST(MessageEvents, BatchesPayloadsCeilingAndThePlanThatWaits) {
  std::vector<int> items(1001);
  const auto slices = MessageEvents::batches(items, 500);
  ASSERT_EQ(slices.size(), 3u);
  EXPECT_EQ(slices[0].size(), 500u);
  EXPECT_EQ(slices[1].size(), 500u);
  EXPECT_EQ(slices[2].size(), 1u);
  EXPECT_TRUE(MessageEvents::batches(std::vector<int>{}, 500).empty());

  EXPECT_EQ(MessageEvents::payload(ChatDatabase::Receipt{"G", "read", now, 1, false}),
            json::parse(R"({"kind":"status","status":"read","messageExternalId":"G"})"));
  EXPECT_EQ(MessageEvents::payload(tapback(7, now)),
            json::parse(R"({"kind":"reaction","reactorKey":"+1555","mode":"add","emoji":"👍","messageExternalId":"TARGET-7"})"));
  EXPECT_EQ(MessageEvents::payload(tapback(7, now, false, 3001)),
            json::parse(R"({"kind":"reaction","reactorKey":"+1555","mode":"remove","messageExternalId":"TARGET-7"})"));
  EXPECT_EQ(MessageEvents::payload(tapback(7, now, false, 2006)), std::nullopt) << "custom without an emoji";
  auto untargeted = tapback(7, now);
  untargeted.targetGuid.clear();
  EXPECT_EQ(MessageEvents::payload(untargeted), std::nullopt);

  const auto plan = MessageEvents::plan({tapback(10, now - 5s), tapback(11, now + 5s), tapback(12, now - 1s)}, 12, now);
  ASSERT_EQ(plan.send.size(), 1u);
  EXPECT_EQ(plan.advanceTo, 10) << "the next pass starts at the tapback that waits";
  EXPECT_EQ(MessageEvents::plan({tapback(10, now - 5s)}, 10, now).advanceTo, 10);

  EXPECT_EQ(MessageEvents::ceiling(CaptureCursor{now - 2h}, now), now - 2h);
  EXPECT_EQ(MessageEvents::ceiling(CaptureCursor{now - 30min}, now), now);
}

struct PostedBatches {
  std::vector<std::pair<std::string, json::array>> batches;
  std::set<std::size_t> failing;  // indexes of calls that fail
};

asio::awaitable<bool> recordPost(PostedBatches* posted, std::string channelId, json::array events) {
  const bool taken = !posted->failing.contains(posted->batches.size());
  posted->batches.emplace_back(std::move(channelId), std::move(events));
  co_return taken;
}

MessageEventsPass::Post poster(PostedBatches& posted) {
  return [&posted](std::string channelId, json::array events) {
    return recordPost(&posted, std::move(channelId), std::move(events));
  };
}

TEST(MessageEventsPass, SendsInBatchesRecordsOnlyWhatWasTakenAndRoutesByChannel) {
  asio::io_context io;
  ChatDatabase::ReceiptReadout receipts;
  const std::int64_t base = 800'000'000'000'000'000;  // nanoseconds since 2001, as the store counts
  for (int i = 0; i < 1001; ++i) receipts.rows.push_back({"M" + std::to_string(i), "delivered", now - 1min, base + i, false});
  ChatDatabase::TapbackReadout tapbacks;
  tapbacks.rows = {tapback(20, now - 1min), tapback(21, now - 1min, true), tapback(22, now - 1min, false, 2006)};

  MessageEventsPass pass(5, ReceiptLedger{});
  PostedBatches posted;
  posted.failing = {1};
  const MessageEventsPass::Channels channels{"ch-imessage", std::nullopt};
  const auto summary = testing::runAwaitable(io, pass.run(tapbacks, receipts, channels, now, poster(posted)));
  ASSERT_EQ(posted.batches.size(), 3u);
  EXPECT_EQ(posted.batches[0].second.size(), 500u);
  EXPECT_EQ(posted.batches[1].second.size(), 500u);
  EXPECT_EQ(posted.batches[2].second.size(), 2u);
  EXPECT_EQ(posted.batches[0].first, "ch-imessage");
  EXPECT_EQ(summary.receiptsSent, 501);
  EXPECT_EQ(summary.batchesFailed, 1);
  EXPECT_EQ(summary.tapbacksUnreadable, 1);
  EXPECT_EQ(summary.notConnected, 1) << "an SMS reaction without an SMS channel";
  EXPECT_EQ(MessageEventsPass::summaryLine(summary),
            "message events — 501 receipt(s) sent, 1 batch(es) failed, 1 tapback(s) unreadable, 1 on a channel not connected");
  EXPECT_EQ(pass.tapbackRowId(), 22) << "the reaction went in the first batch, which was taken";
  EXPECT_EQ(pass.ledger().watermark(), 0) << "a failed batch of receipts keeps the watermark where it was";

  // The next pass sends again exactly what was not taken.
  PostedBatches again;
  const auto second = testing::runAwaitable(io, pass.run({}, receipts, channels, now, poster(again)));
  EXPECT_EQ(second.receiptsSent, 500);
  EXPECT_EQ(second.batchesFailed, 0);
  EXPECT_EQ(pass.tapbackRowId(), 22);
  EXPECT_EQ(pass.ledger().watermark(), base + 998 - ReceiptLedger::overlap) << "the newest receipt sent in this pass";

  // A failed batch that carries a reaction keeps the row id where it was.
  MessageEventsPass refused(5, ReceiptLedger{});
  PostedBatches failing;
  failing.failing = {0};
  testing::runAwaitable(io, refused.run(tapbacks, {}, channels, now, poster(failing)));
  EXPECT_EQ(refused.tapbackRowId(), 5);

  // Reactions and receipts dated after the ceiling wait.
  MessageEventsPass waiting(0, ReceiptLedger{});
  ChatDatabase::TapbackReadout late;
  late.rows = {tapback(30, now - 1min), tapback(31, now + 1min)};
  ChatDatabase::ReceiptReadout lateReceipts;
  lateReceipts.rows = {{"L", "read", now + 1min, 5000, false}};
  PostedBatches third;
  const auto held = testing::runAwaitable(io, waiting.run(late, lateReceipts, {"ch-imessage", "ch-sms"}, now, poster(third)));
  ASSERT_EQ(third.batches.size(), 1u);
  EXPECT_EQ(third.batches[0].second.size(), 1u);
  EXPECT_EQ(held.receiptsSent, 0);
  EXPECT_EQ(waiting.tapbackRowId(), 30);
  EXPECT_EQ(waiting.ledger().watermark(), 0);
}

}  // namespace
}  // namespace quarl

#include <boost/asio/io_context.hpp>
#include <boost/json/parse.hpp>
#include <gmock/gmock.h>

#include <functional>
#include <set>

#include "../tests/support/RunAwaitable.h"
#include "MessageEvents.h"
#include "MessageEventsPass.h"

namespace quarl {
namespace {

namespace asio = boost::asio;
namespace json = boost::json;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
const SystemTime now(1'790'000'000s);

ChatDatabase::Tapback tapback(std::int64_t row, SystemTime date, bool isSMS = false, std::int64_t type = 2001) {
  return {row, type, "TARGET-" + std::to_string(row), "+1555", false, std::nullopt, date, isSMS};
}

TEST(MessageEvents, BatchesPayloadsCeilingAndThePlanThatWaits) {
  std::vector<std::size_t> sizes;
  for (const auto& slice : MessageEvents::batches(std::vector<int>(1001), 500)) sizes.push_back(slice.size());
  EXPECT_EQ(sizes, (std::vector<std::size_t>{500, 500, 1}));
  EXPECT_TRUE(MessageEvents::batches(std::vector<int>{}, 500).empty());

  EXPECT_EQ(MessageEvents::payload(ChatDatabase::Receipt{"G", "read", now, 1, false}),
            json::parse(R"({"kind":"status","status":"read","messageExternalId":"G"})"));
  EXPECT_EQ(MessageEvents::payload(tapback(7, now)),
            json::parse(R"({"kind":"reaction","reactorKey":"+1555","mode":"add","emoji":"👍","messageExternalId":"TARGET-7"})"));
  EXPECT_EQ(MessageEvents::payload(tapback(7, now, false, 3001)),
            json::parse(R"({"kind":"reaction","reactorKey":"+1555","mode":"remove","messageExternalId":"TARGET-7"})"));
  EXPECT_EQ(MessageEvents::payload(ChatDatabase::Tapback{7, 2001, "", "+1555", false, std::nullopt, now, false}), std::nullopt)
      << "a reaction to no message the reader can make out";

  // The first tapback after the ceiling stops the plan: those behind it wait too.
  const auto plan = MessageEvents::plan({tapback(10, now - 5s), tapback(11, now + 5s), tapback(12, now - 1s)}, 12, now);
  ASSERT_EQ(plan.send.size(), 1u);
  EXPECT_EQ(plan.advanceTo, 10) << "the next pass starts at the tapback that waits";

  EXPECT_EQ(MessageEvents::ceiling(CaptureCursor{now - 2h}, now), now - 2h);
  EXPECT_EQ(MessageEvents::ceiling(CaptureCursor{now - 30min}, now), now);
}

// What a pass posted, "channel:events" for each call; the calls at the indexes in `refused` fail.
struct Posted {
  std::set<std::size_t> refused;
  std::vector<std::string> batches;
};

asio::awaitable<bool> postTo(Posted* posted, std::string channelId, json::array events) {
  posted->batches.push_back(channelId + ":" + std::to_string(events.size()));
  co_return !posted->refused.contains(posted->batches.size() - 1);
}

TEST(MessageEventsPass, SendsInBatchesRecordsOnlyWhatWasTakenAndRoutesByChannel) {
  asio::io_context io;
  ChatDatabase::ReceiptReadout receipts;
  const std::int64_t base = 800'000'000'000'000'000;  // nanoseconds since 2001, as the store counts
  for (int i = 0; i < 1001; ++i) receipts.rows.push_back({"M" + std::to_string(i), "delivered", now - 1min, base + i, false});
  const ChatDatabase::TapbackReadout tapbacks{
      {tapback(20, now - 1min), tapback(21, now - 1min, true), tapback(22, now - 1min, false, 2006)}, std::nullopt};

  // The reaction and 499 receipts go in the first batch; the second, of 500 receipts, is refused.
  MessageEventsPass pass(5, ReceiptLedger{});
  Posted posted{{1}, {}};
  const MessageEventsPass::Channels channels{"ch-imessage", std::nullopt};
  const auto summary = testing::runAwaitable(io, pass.run(tapbacks, receipts, channels, now, std::bind_front(postTo, &posted)));
  EXPECT_THAT(posted.batches, ElementsAre("ch-imessage:500", "ch-imessage:500", "ch-imessage:2"));
  EXPECT_EQ(MessageEventsPass::summaryLine(summary),
            "message events — 501 receipt(s) sent, 1 batch(es) failed, 1 tapback(s) unreadable, 1 on a channel not connected")
      << "the custom reaction has no emoji; the SMS one has no SMS channel";
  EXPECT_EQ(pass.tapbackRowId(), 22) << "the reaction went in the first batch, which was taken";
  EXPECT_EQ(pass.ledger().watermark(), 0) << "a failed batch of receipts keeps the watermark where it was";
  EXPECT_TRUE(summary.leftForLater);

  // The next pass sends again exactly what was not taken.
  Posted again{{}, {}};
  const auto second = testing::runAwaitable(io, pass.run({}, receipts, channels, now, std::bind_front(postTo, &again)));
  EXPECT_EQ(second.receiptsSent, 500);
  EXPECT_FALSE(second.leftForLater);
  EXPECT_EQ(pass.tapbackRowId(), 22) << "a pass without tapbacks keeps the row id";
  EXPECT_EQ(pass.ledger().watermark(), base + 998 - ReceiptLedger::overlap) << "the newest receipt sent in this pass";

  // A failed batch that carries a reaction keeps the row id where it was.
  MessageEventsPass refused(5, ReceiptLedger{});
  Posted failing{{0}, {}};
  testing::runAwaitable(io, refused.run(tapbacks, {}, channels, now, std::bind_front(postTo, &failing)));
  EXPECT_EQ(refused.tapbackRowId(), 5);

  // Reactions and receipts dated after the ceiling wait, and the watermark stops short of the first receipt that waits.
  MessageEventsPass waiting(0, ReceiptLedger{});
  const ChatDatabase::TapbackReadout late{{tapback(30, now - 1min), tapback(31, now + 1min)}, std::nullopt};
  const ChatDatabase::ReceiptReadout lateReceipts{
      {{"L", "read", now + 1min, base + 10, false}, {"K", "delivered", now - 1min, base + 20, false}}, std::nullopt};
  Posted third{{}, {}};
  const auto heldReaction = testing::runAwaitable(
      io, MessageEventsPass(0, ReceiptLedger{}).run(late, {}, {"ch-imessage", "ch-sms"}, now, std::bind_front(postTo, &third)));
  EXPECT_TRUE(heldReaction.leftForLater);
  const auto heldReceipt = testing::runAwaitable(
      io, MessageEventsPass(0, ReceiptLedger{}).run({}, lateReceipts, {"ch-imessage", "ch-sms"}, now, std::bind_front(postTo, &third)));
  EXPECT_TRUE(heldReceipt.leftForLater);
  ChatDatabase::TapbackReadout full;
  for (int row = 1; row <= MessageEventsPass::tapbackLimit; ++row) full.rows.push_back(tapback(row, now - 1min));
  const auto more = testing::runAwaitable(
      io, MessageEventsPass(0, ReceiptLedger{}).run(full, {}, {"ch-imessage", "ch-sms"}, now, std::bind_front(postTo, &third)));
  EXPECT_TRUE(more.leftForLater) << "a full readout has more behind it";
  third.batches.clear();
  testing::runAwaitable(io, waiting.run(late, lateReceipts, {"ch-imessage", "ch-sms"}, now, std::bind_front(postTo, &third)));
  EXPECT_THAT(third.batches, ElementsAre("ch-imessage:2")) << "reaction 30 and receipt K";
  EXPECT_EQ(waiting.tapbackRowId(), 30);
  EXPECT_EQ(waiting.ledger().watermark(), base + 9 - ReceiptLedger::overlap);
}

}  // namespace
}  // namespace quarl

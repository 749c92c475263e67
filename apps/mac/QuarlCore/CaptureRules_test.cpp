#include <boost/json/parse.hpp>
#include <gmock/gmock.h>

#include <tuple>

#include "CaptureCursor.h"
#include "IngestedRecently.h"
#include "ReceiptLedger.h"

namespace quarl {
namespace {

using namespace std::chrono_literals;
const SystemTime now(1'790'000'000s);

TEST(CaptureCursor, NeverMovesBackAndAClippedWindowDoesNotAdvanceIt) {
  auto cursor = CaptureCursor::initial(now, 7);
  EXPECT_EQ(cursor.lastMessageDate, now - 7 * 24h);
  const auto clipped = cursor.liveWindow(now, 1h);
  EXPECT_EQ(std::tuple(clipped.since, clipped.mayAdvanceCursor), std::tuple(now - 1h, false)) << "only the last hour is read";

  cursor.advance(now - 10min, 5s);
  cursor.advance(now - 20min, 5s);
  EXPECT_EQ(cursor.lastMessageDate, now - 10min - 5s) << "never backwards";
  const auto open = cursor.liveWindow(now, 1h);
  EXPECT_EQ(std::tuple(open.since, open.mayAdvanceCursor), std::tuple(now - 10min - 5s, true));

  EXPECT_EQ(CaptureCursor::decoded(cursor.encoded()).value().lastMessageDate, cursor.lastMessageDate);
  EXPECT_FALSE(CaptureCursor::decoded(boost::json::parse(R"({"lastMessageDate":"yesterday"})")));
  EXPECT_FALSE(CaptureCursor::decoded(boost::json::parse(R"("2026-01-01T00:00:00Z")")));
}

TEST(IngestedRecently, ForgetsOnlyWhatIsOlderThanTheLimit) {
  IngestedRecently recent;
  recent.record("a", now - 2h);
  recent.record("b", now);
  recent.forget(now - 1h);
  EXPECT_EQ(std::pair(recent.contains("a"), recent.contains("b")), std::pair(false, true));
}

ChatDatabase::Receipt receipt(std::string guid, std::string status, std::int64_t changedAt) {
  return {std::move(guid), std::move(status), now, changedAt, false};
}

TEST(ReceiptLedger, AStatusGoesOnceAndReadIsNeverFollowedByDelivered) {
  ReceiptLedger ledger;
  const std::vector<ChatDatabase::Receipt> delivered{receipt("m1", "delivered", 100), receipt("m2", "read", 100)};
  ledger.record(delivered);
  EXPECT_TRUE(ledger.fresh(delivered).empty()) << "the same status twice";
  const auto later = ledger.fresh({receipt("m1", "read", 200), receipt("m2", "delivered", 200)});
  EXPECT_THAT(later, ::testing::ElementsAre(::testing::Field(&ChatDatabase::Receipt::guid, "m1")));
  EXPECT_TRUE(ledger.fresh({receipt("m3", "sent", 1)}).empty()) << "an unknown status ranks 0";

  ledger.advance(ReceiptLedger::overlap + 500);
  ledger.advance(100);
  EXPECT_EQ(ledger.watermark(), 500) << "the watermark never moves back";
  ledger.record(later);
  ledger.forget(150);
  EXPECT_EQ(ledger.size(), 1u) << "m2, read at 100, is forgotten; m1, read at 200, is kept";

  const auto stored = ReceiptLedger::decoded(ledger.encoded());
  EXPECT_EQ(stored.watermark(), 500);
  EXPECT_TRUE(stored.fresh({receipt("m1", "read", 300)}).empty());
  EXPECT_EQ(ReceiptLedger::decoded(boost::json::parse("[1,2]")).size(), 0u);
}

}  // namespace
}  // namespace quarl

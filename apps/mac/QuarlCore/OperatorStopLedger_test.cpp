#include "OperatorStopLedger.h"

#include <gtest/gtest.h>

#include "../tests/support/MemorySettingsStore.h"

namespace quarl {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;

const SystemTime start(1'790'000'000s);

std::vector<std::string> ids(const std::vector<OperatorStopLedger::Entry>& entries) {
  std::vector<std::string> out;
  for (const auto& entry : entries) out.push_back(entry.runId + "/" + entry.by);
  return out;
}

TEST(OperatorStopLedger, KeepsEachRunOnceWithItsFirstEndCodeUntilReportedAndAcrossRestarts) {
  auto store = std::make_shared<testing::MemorySettingsStore>();
  OperatorStopLedger ledger(store);
  using Stop = std::pair<const char*, const char*>;
  for (const auto& [runId, by] : {Stop{"run-1", "hotkey"}, Stop{"run-1", "bar"}, Stop{"run-2", "brain"},
                                  Stop{"run-3", "something"}, Stop{"run-4", "quit"}, Stop{"run-5", "menu"}}) {
    ledger.record(runId, by, start);
  }
  ledger.markReported("run-5");
  const OperatorStopLedger restarted(store);
  EXPECT_EQ(ids(restarted.unreported()),
            (std::vector<std::string>{"run-1/hotkey", "run-2/conditions", "run-3/conditions", "run-4/quit"}));
  EXPECT_EQ(restarted.stoppedRunIds(), (std::vector<std::string>{"run-1", "run-2", "run-3", "run-4", "run-5"}));
  EXPECT_EQ(restarted.unreported().front().at, start) << "the time survives the round trip to seconds";
}

TEST(OperatorStopLedger, KeepsTheNewestFiftyAndSkipsStoredEntriesItCannotRead) {
  auto store = std::make_shared<testing::MemorySettingsStore>();
  store->write(OperatorStopLedger::key,
               json::array{json::object{{"runId", ""}, {"by", "bar"}, {"at", 1.0}, {"reported", false}},
                           json::object{{"runId", "no-by"}, {"at", 1.0}}, json::object{{"runId", "no-at"}, {"by", "bar"}},
                           json::object{{"runId", "kept"}, {"by", "menu"}, {"at", 2.5}}, "not an entry"});
  OperatorStopLedger ledger(store);
  EXPECT_EQ(ids(ledger.unreported()), std::vector<std::string>{"kept/menu"});

  // Recorded out of order, the oldest by time ("kept") goes first once there are more than fifty.
  for (int i = 50; i >= 1; --i) ledger.record("run-" + std::to_string(i), "bar", start + std::chrono::seconds(i));
  const auto kept = ledger.stoppedRunIds();
  ASSERT_EQ(kept.size(), OperatorStopLedger::keep);
  EXPECT_EQ(kept.front(), "run-1");
  EXPECT_EQ(store->read(OperatorStopLedger::key)->as_array().size(), OperatorStopLedger::keep);
}

TEST(StopReportOutcome, TheServicesAnswerDecidesWhetherAStopIsTriedAgain) {
  for (int status : {200, 204}) EXPECT_EQ(stopReportOutcomeOf(status), StopReportOutcome::reported) << status;
  for (int status : {400, 404, 409, 410, 422}) EXPECT_EQ(stopReportOutcomeOf(status), StopReportOutcome::final) << status;
  for (int status : {0, 401, 403, 429, 500, 503}) EXPECT_EQ(stopReportOutcomeOf(status), StopReportOutcome::retry) << status;
}

}  // namespace
}  // namespace quarl

#include "PollRace.h"

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include "../tests/support/ManualClock.h"

namespace quarl {
namespace {

namespace asio = boost::asio;
using namespace std::chrono_literals;

// A poll that answers `value` once `after` has passed on the clock.
asio::awaitable<int> pollAnswering(std::shared_ptr<testing::ManualClock> clock, std::chrono::milliseconds after,
                                   int value) {
  co_await clock->sleep(after);
  co_return value;
}

struct Raced {
  std::optional<PollRace::Outcome<int>> outcome;
  std::vector<int> late;
};

asio::awaitable<void> race(std::shared_ptr<testing::ManualClock> clock, std::shared_ptr<OperatorWakeSignal> wake,
                           std::chrono::milliseconds pollTakes, Raced* raced) {
  auto poll = pollAnswering(clock, pollTakes, 7);
  std::function<void(int)> late = [raced](int value) { raced->late.push_back(value); };
  raced->outcome = co_await PollRace::run(std::move(poll), *wake, 30s, std::move(late));
}

class PollRaceOnAManualClock : public ::testing::Test {
 protected:
  void runReady() {
    io_.restart();
    io_.poll();
  }
  void start(std::chrono::milliseconds pollTakes) {
    asio::co_spawn(io_, race(clock_, wake_, pollTakes, &raced_), asio::detached);
    runReady();
  }

  asio::io_context io_;
  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>(SystemTime(1'700'000'000s));
  std::shared_ptr<OperatorWakeSignal> wake_ = std::make_shared<OperatorWakeSignal>(io_.get_executor(), clock_);
  Raced raced_;
};

TEST_F(PollRaceOnAManualClock, AnAnswerInTimeWinsAndLeavesNoWaiterBehind) {
  start(10s);
  clock_->advance(10s);
  runReady();
  ASSERT_TRUE(raced_.outcome);
  EXPECT_EQ(raced_.outcome->winner, PollRace::Winner::poll);
  EXPECT_EQ(raced_.outcome->answer, 7);
  wake_->signal();  // with no waiter left armed, this is kept for the next wait
  bool woken = false;
  wake_->arm(1s, [&](bool w) { woken = w; });
  EXPECT_TRUE(woken);
}

TEST_F(PollRaceOnAManualClock, ASignalOrTheLimitEndsTheWaitAndTheLateAnswerIsHandedAside) {
  start(40s);
  wake_->signal();
  runReady();
  ASSERT_TRUE(raced_.outcome);
  EXPECT_EQ(raced_.outcome->winner, PollRace::Winner::signal);
  EXPECT_EQ(raced_.outcome->answer, std::nullopt);

  Raced second;
  asio::co_spawn(io_, race(clock_, wake_, 40s, &second), asio::detached);
  runReady();
  clock_->advance(30s);
  runReady();
  ASSERT_TRUE(second.outcome);
  EXPECT_EQ(second.outcome->winner, PollRace::Winner::timeLimit);

  clock_->advance(10s);
  runReady();
  EXPECT_EQ(raced_.late, std::vector<int>{7});
  EXPECT_EQ(second.late, std::vector<int>{7});
}

}  // namespace
}  // namespace quarl

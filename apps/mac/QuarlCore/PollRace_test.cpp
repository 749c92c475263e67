#include "PollRace.h"

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include "../tests/support/ManualClock.h"

namespace quarl {
namespace {

namespace asio = boost::asio;
using namespace std::chrono_literals;

struct Raced {
  std::optional<PollRace::Winner> winner() const { return outcome ? std::optional(outcome->winner) : std::nullopt; }
  std::optional<PollRace::Outcome<int>> outcome;
  std::vector<int> late;
};

// A poll that answers 7 once `after` has passed on the clock.
asio::awaitable<int> answerAfter(std::shared_ptr<testing::ManualClock> clock, std::chrono::milliseconds after) {
  co_await clock->sleep(after);
  co_return 7;
}

TEST(PollRace, TheFirstOfAnswerSignalAndLimitWinsAndALateAnswerIsHandedAside) {
  asio::io_context io;
  auto clock = std::make_shared<testing::ManualClock>(SystemTime(1'700'000'000s));
  auto wake = std::make_shared<OperatorWakeSignal>(io.get_executor(), clock);
  const auto pass = [&](std::chrono::milliseconds by) { clock->advance(by); io.restart(); io.poll(); };
  // Races a poll that takes `pollTakes` against the wake signal and a limit of 30 s.
  const auto start = [&](std::chrono::milliseconds pollTakes, Raced& raced) {
    asio::co_spawn(io,
                   PollRace::run<int>(answerAfter(clock, pollTakes), *wake, 30s,
                                      [&raced](int value) { raced.late.push_back(value); }),
                   [&raced](std::exception_ptr, PollRace::Outcome<int> outcome) { raced.outcome = outcome; });
    pass(0ms);
  };

  Raced inTime, signalled, timedOut;
  start(10s, inTime);
  pass(10s);
  ASSERT_EQ(inTime.winner(), PollRace::Winner::poll);
  EXPECT_EQ(inTime.outcome->answer, 7);
  wake->signal();  // the poll won, so no waiter is left armed: this is kept for the next wait
  bool woken = false;
  wake->arm(1s, [&](bool w) { woken = w; });
  EXPECT_TRUE(woken);

  start(40s, signalled);
  wake->signal();
  pass(0ms);
  ASSERT_EQ(signalled.winner(), PollRace::Winner::signal);
  EXPECT_EQ(signalled.outcome->answer, std::nullopt);

  start(40s, timedOut);
  pass(30s);
  EXPECT_EQ(timedOut.winner(), PollRace::Winner::timeLimit);
  pass(10s);
  EXPECT_EQ((std::vector{inTime.late, signalled.late, timedOut.late}), (std::vector<std::vector<int>>{{}, {7}, {7}}));
}

}  // namespace
}  // namespace quarl

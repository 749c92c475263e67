#include "OperatorWakeSignal.h"

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include "../tests/support/ManualClock.h"

namespace quarl {
namespace {

using namespace std::chrono_literals;

TEST(OperatorWakeSignal, ASignalWakesTheWaiterOrTheNextAndAStaleTimerDoesNothing) {
  boost::asio::io_context io;
  auto clock = std::make_shared<testing::ManualClock>(SystemTime(1'700'000'000s));
  auto signal = std::make_shared<OperatorWakeSignal>(io.get_executor(), clock);
  std::vector<std::string> heard;
  const auto waiter = [&](std::string name) {
    return [&heard, name](bool woken) { heard.push_back(name + (woken ? " woken" : " ran out")); };
  };
  const auto runReady = [&] {
    io.restart();
    io.poll();
  };

  signal->signal();
  signal->arm(30s, waiter("first"));
  EXPECT_EQ(heard, std::vector<std::string>{"first woken"}) << "a signal nobody waited for wakes the next arm at once";

  signal->arm(30s, waiter("second"));
  runReady();
  clock->advance(10s);
  runReady();
  signal->signal();
  EXPECT_EQ(heard.back(), "second woken");
  signal->arm(30s, waiter("third"));
  runReady();
  clock->advance(25s);  // the second wait's timer runs out now; it must not end the third
  runReady();
  EXPECT_EQ(heard.back(), "second woken");
  clock->advance(10s);
  runReady();
  EXPECT_EQ(heard.back(), "third ran out");

  signal->arm(30s, waiter("fourth"));
  runReady();
  clock->advance(20s);
  runReady();
  signal->arm(30s, waiter("fifth"));
  runReady();
  EXPECT_EQ(heard.back(), "fourth woken") << "a waiter armed before makes room";
  clock->advance(15s);  // the fourth wait's timer runs out; the fifth has 15 s left
  runReady();
  EXPECT_EQ(heard.back(), "fourth woken");
  signal->cancelWait();
  EXPECT_EQ(heard.back(), "fifth ran out");
  EXPECT_EQ(heard.size(), 5u);
}

}  // namespace
}  // namespace quarl

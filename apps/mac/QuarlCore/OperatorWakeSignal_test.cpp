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
  const auto pass = [&](std::chrono::milliseconds by) { clock->advance(by); io.restart(); io.poll(); };
  // Arms a wait of 30 s, and lets its timer start.
  const auto arm = [&](std::string name) {
    signal->arm(30s, [&heard, name](bool woken) { heard.push_back(name + (woken ? " woken" : " ran out")); });
    pass(0ms);
  };

  signal->signal();
  arm("first");
  EXPECT_EQ(heard, std::vector<std::string>{"first woken"}) << "a signal nobody waited for wakes the next arm at once";

  arm("second");
  pass(10s);
  signal->signal();
  EXPECT_EQ(heard.back(), "second woken");
  arm("third");
  pass(25s);  // the second wait's timer runs out now; it must not end the third
  EXPECT_EQ(heard.back(), "second woken");
  pass(10s);
  EXPECT_EQ(heard.back(), "third ran out");

  arm("fourth");
  pass(20s);
  arm("fifth");
  EXPECT_EQ(heard.back(), "fourth woken") << "a waiter armed before makes room";
  pass(15s);  // the fourth wait's timer runs out; the fifth has 15 s left
  EXPECT_EQ(heard.back(), "fourth woken");
  signal->cancelWait();
  EXPECT_EQ(heard.back(), "fifth ran out");
  EXPECT_EQ(heard.size(), 5u);
}

}  // namespace
}  // namespace quarl

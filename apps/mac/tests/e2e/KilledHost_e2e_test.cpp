#include <signal.h>

#include <boost/process/child.hpp>
#include <boost/process/io.hpp>
#include <gtest/gtest.h>
#include <random>
#include <thread>

#include "../support/DevBrainAdmin.h"
#include "../support/HostHome.h"
#include "../support/MessagesStore.h"

namespace quarl {
namespace {

namespace bp = boost::process;
namespace fs = std::filesystem;
namespace json = boost::json;
using namespace std::chrono;

constexpr int backlog = 5000;
constexpr int trials = 20;

// One computer with a 5,000-message backlog: its host is killed at a random moment of the
// capture and started again; every message must reach the service. Gives how many had reached
// it when the host was killed.
std::int64_t killAndRestart(std::mt19937& random, int trial) {
  testing::DevBrainProcess brain;
  testing::DevBrainAdmin admin(brain);
  admin.post("/admin/settings", {{"autoApprove", true}, {"pairingIntervalSeconds", 0}});
  testing::HostHome home(brain);
  const auto now = time_point_cast<SystemTime::duration>(system_clock::now());
  {
    testing::MessagesStore store(home.store());
    const auto handle = store.handle("+15550001");
    const auto chat = store.chat("+15550001", "iMessage", {handle});
    store.exec("begin");
    for (int i = 0; i < backlog; ++i) {
      store.message({.guid = "m-" + std::to_string(i), .chat = chat, .handle = handle, .text = "n" + std::to_string(i),
                     .date = testing::appleNanoseconds(now - hours(24) + seconds(i))});
    }
    store.exec("commit");
  }
  auto environment = home.environment();
  environment["QUARL_LOG_LEVEL"] = "error";

  bp::child running(QUARL_COMPANION_PATH, environment, bp::std_out > bp::null, bp::std_err > bp::null);
  std::uniform_int_distribution<int> moment(0, 1500);
  const auto killAfter = milliseconds(moment(random));
  std::this_thread::sleep_for(killAfter);
  ::kill(running.id(), SIGKILL);
  running.wait();
  const auto beforeRestart = admin.get("/admin/stats").at("ingested").as_int64();

  const auto restarted = home.run({"--once"}, environment);
  EXPECT_EQ(restarted.code, 0) << "trial " << trial << ": " << restarted.log;
  EXPECT_EQ(admin.get("/admin/stats").at("ingested").as_int64(), backlog)
      << "trial " << trial << ", killed after " << killAfter.count() << " ms with " << beforeRestart
      << " handed over: " << restarted.log;
  return beforeRestart;
}

TEST(KilledHost, EveryMessageReachesTheServiceAfterAKillAtAnyMoment) {
  std::mt19937 random(std::random_device{}());
  int killedMidway = 0;
  for (int trial = 1; trial <= trials; ++trial) {
    const auto handedOver = killAndRestart(random, trial);
    killedMidway += handedOver > 0 && handedOver < backlog;
  }
  EXPECT_GT(killedMidway, 0) << "no kill fell inside a capture, so nothing was tested";
}

}  // namespace
}  // namespace quarl

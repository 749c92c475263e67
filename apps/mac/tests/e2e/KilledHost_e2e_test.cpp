#include <signal.h>

#include <boost/process/child.hpp>
#include <boost/process/io.hpp>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <random>
#include <thread>

#include "../support/DevBrainAdmin.h"
#include "../support/FileContents.h"
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

// Waits up to `limit` for `done`.
bool eventually(const std::function<bool()>& done, milliseconds limit = seconds(20)) {
  for (auto waited = milliseconds(0); waited < limit; waited += milliseconds(10)) {
    if (done()) return true;
    std::this_thread::sleep_for(milliseconds(10));
  }
  return done();
}

int linesOf(const fs::path& file, const std::string& starting) {
  std::istringstream lines(fs::exists(file) ? testing::fileContents(file) : std::string());
  int count = 0;
  for (std::string line; std::getline(lines, line);) count += line.starts_with(starting);
  return count;
}

// A signed-in computer whose relay jobs go to the Messages stand-in, which takes `delay` to
// write each row; devbrain offers a claimed job again after half a second without its report.
struct RelayComputer {
  explicit RelayComputer(milliseconds delay) : admin(brain), home(brain) {
    admin.post("/admin/settings", {{"claimLeaseMs", 500}});
    home.signIn(admin);
    testing::MessagesStore store(home.store());
    const auto ann = store.handle("+15550001");
    store.chat("+15550001", "iMessage", {ann});
    environment = home.environment();
    environment["QUARL_OSASCRIPT"] = QUARL_STANDIN_PATH;
    environment["QUARL_STANDIN_LOG"] = standInLog().string();
    environment["QUARL_STANDIN_DELAY_MS"] = std::to_string(delay.count());
  }
  fs::path standInLog() const { return home.path() / "standin.log"; }
  fs::path hostLog() const { return home.path() / "host.log"; }
  std::string queue(const std::string& body) {
    return std::string(admin.post("/admin/jobs", {{"channelKind", "imessage"}, {"conversationRef", "+15550001"},
                                                  {"body", body}}).at("id").as_string());
  }
  int reportsOf(const std::string& jobId) {
    int count = 0;
    const auto reports = admin.get("/admin/reports");
    for (const auto& report : reports.as_array()) count += report.at("jobId") == jobId.c_str();
    return count;
  }

  testing::DevBrainProcess brain;
  testing::DevBrainAdmin admin;
  testing::HostHome home;
  bp::environment environment;
};

// Killed while the stand-in writes the row, after the row but before the report, or anywhere
// around them, the host started again sends nothing twice and reports each job exactly once.
TEST(KilledHost, ARelayJobIsSentOnceAndReportedOnceAfterAKillAtAnyMoment) {
  std::mt19937 random(std::random_device{}());
  std::uniform_int_distribution<int> moment(0, 3000);
  int killedAfterTheScript = 0;
  for (int trial = 1; trial <= trials; ++trial) {
    RelayComputer computer(milliseconds(1000));
    const auto job = computer.queue("trial " + std::to_string(trial));
    auto running = computer.home.start(computer.environment, computer.hostLog());
    const auto killAfter = milliseconds(moment(random));
    std::this_thread::sleep_for(killAfter);
    ::kill(running.id(), SIGKILL);
    running.wait();
    killedAfterTheScript += linesOf(computer.standInLog(), "text") == 1 && computer.reportsOf(job) == 0;

    std::this_thread::sleep_for(milliseconds(600));  // the claim's lease runs out
    const auto restarted = computer.home.run({"--once"}, computer.environment);
    EXPECT_EQ(restarted.code, 0) << restarted.log;
    EXPECT_EQ(computer.reportsOf(job), 1) << "trial " << trial << ", killed after " << killAfter.count() << " ms: "
                                          << testing::fileContents(computer.hostLog()) << restarted.log;
    EXPECT_EQ(linesOf(computer.standInLog(), "text"), 1) << "trial " << trial << ", killed after " << killAfter.count()
                                                         << " ms: " << restarted.log;
  }
  EXPECT_GT(killedAfterTheScript, 0) << "no kill fell between a hand-over and its report, so nothing was tested";
}

TEST(StoppedHost, AQuittingHostReportsTheJobInHandAndOneHostRunsPerAccount) {
  RelayComputer computer(milliseconds(0));
  auto running = computer.home.start(computer.environment, computer.hostLog());
  ASSERT_TRUE(eventually([&] { return linesOf(computer.hostLog(), "") > 0 &&
                                      testing::fileContents(computer.hostLog()).find("quarl: capture read") != std::string::npos; }));

  // A second copy, and a single tick beside it, would present the same refresh token.
  const auto second = computer.home.run({}, computer.environment);
  EXPECT_EQ(second.code, 1);
  EXPECT_EQ(second.log, "Quarl is already running on this computer, so this copy did not start.\n");
  EXPECT_EQ(computer.home.run({"--once"}, computer.environment).code, 1);

  // The 3 s relay timer claims the job; the host is told to quit while it waits for the row.
  const auto job = computer.queue("on my way");
  ASSERT_TRUE(eventually([&] { return linesOf(computer.standInLog(), "text") == 1; }));
  ::kill(running.id(), SIGTERM);
  running.wait();
  EXPECT_EQ(running.exit_code(), 0);
  EXPECT_EQ(computer.reportsOf(job), 1) << testing::fileContents(computer.hostLog());

  // Signing out beside a running host is done by that host, and nothing brings the session back.
  running = computer.home.start(computer.environment, computer.hostLog());
  ASSERT_TRUE(eventually([&] { return fs::exists(computer.home.config() / "control.sock"); }));
  std::this_thread::sleep_for(milliseconds(200));
  const auto signedOut = computer.home.run({"sign-out"}, computer.environment);
  EXPECT_EQ(signedOut.code, 0);
  std::this_thread::sleep_for(seconds(4));  // a relay pass and the live pass of the host
  ::kill(running.id(), SIGTERM);
  running.wait();
  const auto keychain = testing::fileContents(computer.home.config() / "keychain.json");
  EXPECT_EQ(keychain.find("Token"), std::string::npos) << keychain;
  EXPECT_EQ(testing::fileContents(computer.home.config() / "defaults.json").find("QuarlDeviceId"), std::string::npos);
  EXPECT_THAT(testing::fileContents(computer.hostLog()),
              ::testing::HasSubstr("quarl: signed out — credentials forgotten, this Mac has stopped relaying"));
}

}  // namespace
}  // namespace quarl

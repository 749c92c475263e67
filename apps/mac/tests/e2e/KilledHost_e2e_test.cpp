#include <signal.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

#include "../support/FileContents.h"
#include "../support/HostHome.h"
#include "../support/MessagesStore.h"

namespace quarl {
namespace {

namespace bp = boost::process;
namespace fs = std::filesystem;
using namespace std::chrono;
using testing::eventually;

constexpr int backlog = 5000;
constexpr int trials = 20;

// Starts the host in `home`, kills it at a random moment up to `latest` ms in, calls `killed`, and starts it
// again with --once, which must finish cleanly. Tells when the kill fell and what the host then said.
std::string killThenRunOnce(const testing::HostHome& home, const bp::environment& environment, int latest,
                            const std::function<void()>& killed) {
  static std::mt19937 random(std::random_device{}());
  auto running = home.start(environment, home.path() / "host.log");
  const auto killAfter = std::uniform_int_distribution<int>(0, latest)(random);
  std::this_thread::sleep_for(milliseconds(killAfter));
  ::kill(running.id(), SIGKILL);
  running.wait();
  killed();
  const auto restarted = home.run({"--once"}, environment);
  EXPECT_EQ(restarted.code, 0) << restarted.log;
  return "killed after " + std::to_string(killAfter) + " ms; started again, it said: " + restarted.log;
}

// Computers with a 5,000-message backlog, each host killed at a random moment of the capture and
// started again: every message must reach the service.
TEST(KilledHost, EveryMessageReachesTheServiceAfterAKillAtAnyMoment) {
  int killedMidway = 0;
  for (int trial = 1; trial <= trials; ++trial) {
    SCOPED_TRACE("trial " + std::to_string(trial));
    testing::DevBrainProcess brain;
    testing::DevBrainAdmin admin(brain);
    admin.post("/admin/settings", {{"autoApprove", true}, {"pairingIntervalSeconds", 0}});
    testing::HostHome home(brain);
    {
      testing::MessagesStore store(home.store());
      const auto handle = store.handle("+15550001");
      const auto chat = store.chat("+15550001", "iMessage", {handle});
      const auto now = time_point_cast<SystemTime::duration>(system_clock::now());
      store.exec("begin");
      for (int i = 0; i < backlog; ++i)
        store.message({.guid = "m-" + std::to_string(i), .chat = chat, .handle = handle, .text = "n" + std::to_string(i),
                       .date = testing::appleNanoseconds(now - hours(24) + seconds(i))});
      store.exec("commit");
    }
    auto environment = home.environment();
    environment["QUARL_LOG_LEVEL"] = "error";
    std::int64_t handedOver = 0;
    const auto told = killThenRunOnce(home, environment, 1500, [&] { handedOver = admin.get("/admin/stats").at("ingested").as_int64(); });
    killedMidway += handedOver > 0 && handedOver < backlog;
    EXPECT_EQ(admin.get("/admin/stats").at("ingested").as_int64(), backlog) << handedOver << " handed over, " << told;
  }
  EXPECT_GT(killedMidway, 0) << "no kill fell inside a capture, so nothing was tested";
}

// A signed-in computer whose relay jobs go to the Messages stand-in, which takes `delay` to
// write each row; devbrain offers a claimed job again after half a second without its report.
struct RelayComputer {
  explicit RelayComputer(milliseconds delay) : admin(brain), home(brain) {
    admin.post("/admin/settings", {{"claimLeaseMs", 500}});
    home.signIn(admin);
    testing::MessagesStore store(home.store());
    store.chat("+15550001", "iMessage", {store.handle("+15550001")});
    environment = home.environment();
    environment["QUARL_OSASCRIPT"] = QUARL_STANDIN_PATH;
    environment["QUARL_STANDIN_LOG"] = (home.path() / "standin.log").string();
    environment["QUARL_STANDIN_DELAY_MS"] = std::to_string(delay.count());
  }
  fs::path hostLog() const { return home.path() / "host.log"; }
  bool logSays(const std::string& words) const { return testing::fileContents(hostLog()).find(words) != std::string::npos; }
  // How many scripts the host handed the stand-in: it logs a line for each.
  int scripts() const { return std::ranges::count(testing::fileContents(home.path() / "standin.log"), '\n'); }
  std::string queue(const std::string& body) {
    return std::string(admin.post("/admin/jobs", {{"channelKind", "imessage"}, {"conversationRef", "+15550001"},
                                                  {"body", body}}).at("id").as_string());
  }
  int reportsOf(const std::string& jobId, bool onlyOk = false) {
    const auto reports = admin.get("/admin/reports");
    return std::ranges::count_if(reports.as_array(), [&](const auto& report) {
      return report.at("jobId") == jobId.c_str() && (!onlyOk || report.at("ok") == true);
    });
  }
  testing::HostHome::Run run(const std::vector<std::string>& arguments) { return home.run(arguments, environment); }

  testing::DevBrainProcess brain;
  testing::DevBrainAdmin admin;
  testing::HostHome home;
  bp::environment environment;
};

// Killed while the stand-in writes the row, after the row but before the report, or anywhere
// around them, the host started again sends nothing twice and reports each job exactly once.
TEST(KilledHost, ARelayJobIsSentOnceAndReportedOnceAfterAKillAtAnyMoment) {
  int killedAfterTheScript = 0;
  for (int trial = 1; trial <= trials; ++trial) {
    SCOPED_TRACE("trial " + std::to_string(trial));
    RelayComputer computer(milliseconds(1000));
    const auto job = computer.queue("trial " + std::to_string(trial));
    const auto told = killThenRunOnce(computer.home, computer.environment, 3000, [&] {
      killedAfterTheScript += computer.scripts() == 1 && computer.reportsOf(job) == 0;
      std::this_thread::sleep_for(milliseconds(600));  // the claim's lease runs out
    });
    EXPECT_EQ(computer.reportsOf(job), 1) << told << testing::fileContents(computer.hostLog());
    // A kill after the job was journaled but before Messages had its script leaves nothing sent:
    // the job is reported as not sent, never sent on the second run.
    EXPECT_LE(computer.scripts(), 1) << told;
    if (computer.scripts() == 0) {
      EXPECT_EQ(computer.reportsOf(job, true), 0) << told;
    }
  }
  EXPECT_GT(killedAfterTheScript, 0) << "no kill fell between a hand-over and its report, so nothing was tested";
}

TEST(StoppedHost, AQuittingHostReportsTheJobInHandAndOneHostRunsPerAccount) {
  RelayComputer computer(milliseconds(0));
  auto running = computer.home.start(computer.environment, computer.hostLog());
  ASSERT_TRUE(eventually([&] { return computer.logSays("quarl: capture read"); }, seconds(20)));

  // A second copy, and a single tick beside it, would present the same refresh token.
  const auto second = computer.run({});
  EXPECT_TRUE(second.code == 1 && second.log == "Quarl is already running on this computer, so this copy did not start.\n")
      << second.code << ": " << second.log;
  EXPECT_EQ(computer.run({"--once"}).code, 1);

  // The 3 s relay timer claims the job; the host is told to quit while it waits for the row.
  const auto job = computer.queue("on my way");
  ASSERT_TRUE(eventually([&] { return computer.scripts() == 1; }, seconds(20)));
  ::kill(running.id(), SIGTERM);
  running.wait();
  EXPECT_EQ(running.exit_code(), 0) << "quit with the job in hand";
  EXPECT_EQ(computer.reportsOf(job), 1) << testing::fileContents(computer.hostLog());

  // Signing out beside a running host is done by that host, and nothing brings the session back.
  running = computer.home.start(computer.environment, computer.hostLog());
  ASSERT_TRUE(eventually([&] { return fs::exists(computer.home.config() / "control.sock"); }, seconds(20)));
  std::this_thread::sleep_for(milliseconds(200));
  EXPECT_EQ(computer.run({"sign-out"}).code, 0);
  std::this_thread::sleep_for(seconds(4));  // a relay pass and the live pass of the host
  ::kill(running.id(), SIGTERM);
  running.wait();
  const auto keychain = testing::fileContents(computer.home.config() / "keychain.json");
  EXPECT_EQ(keychain.find("Token"), std::string::npos) << keychain;
  EXPECT_EQ(testing::fileContents(computer.home.config() / "defaults.json").find("QuarlDeviceId"), std::string::npos);
  EXPECT_TRUE(computer.logSays("quarl: signed out — credentials forgotten, this Mac has stopped relaying"));
}

}  // namespace
}  // namespace quarl

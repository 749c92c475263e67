#include <signal.h>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/process/child.hpp>
#include <boost/process/io.hpp>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

#include "../support/DevBrainAdmin.h"
#include "../support/FileContents.h"
#include "../support/HostHome.h"

namespace quarl {
namespace {

namespace bp = boost::process;
namespace fs = std::filesystem;
namespace json = boost::json;
using namespace std::chrono;
using ::testing::HasSubstr;

constexpr std::string_view notUnderstood = "This Mac does not know that step, so it did nothing.";
constexpr std::string_view notYet = "This Mac cannot do that kind of step yet, so nothing was done.";
constexpr std::string_view stoppedHere = "You stopped Quarl on the Mac, so this step did not run.";

// quarl-companion running against devbrain, signed in, with operator mode switched on; devbrain
// holds each poll only briefly, so that the link turns quickly.
class OperatorAgainstDevBrain : public ::testing::Test {
 protected:
  OperatorAgainstDevBrain() : admin_(brain_), home_(brain_) {
    admin_.post("/admin/settings", {{"operatorHoldMs", 100}});
    const auto device = admin_.post("/admin/devices").as_object();
    std::ofstream(home_.config() / "defaults.json")
        << json::serialize(json::object{{"QuarlApiURL", brain_.baseURL()},
                                        {"QuarlDeviceId", device.at("deviceId")},
                                        {"QuarlOperatorAllowed", true}});
    std::ofstream(home_.config() / "keychain.json") << json::serialize(
        json::object{{"accessToken", device.at("accessToken")}, {"refreshToken", device.at("refreshToken")}});
    fs::permissions(home_.config() / "keychain.json", fs::perms::owner_read | fs::perms::owner_write);
  }
  ~OperatorAgainstDevBrain() override {
    if (host_) quitHost();
  }

  void startHost() {
    host_ = std::make_unique<bp::child>(QUARL_COMPANION_PATH, home_.environment(), bp::std_out > bp::null,
                                        bp::std_err > hostLog().string());
  }
  // Ends the host as the system ends it at log-out: SIGTERM, and waits for it to exit.
  void quitHost() {
    ::kill(host_->id(), SIGTERM);
    host_->wait();
    host_.reset();
  }
  fs::path hostLog() const { return home_.path() / "host.log"; }

  // Waits up to ten seconds for `done`.
  static bool eventually(const std::function<bool()>& done) {
    for (int i = 0; i < 1000; ++i) {
      if (done()) return true;
      std::this_thread::sleep_for(milliseconds(10));
    }
    return done();
  }

  std::string queueStep(const std::string& runId, const json::value& step) {
    return std::string(admin_.post("/admin/operator/steps", {{"runId", runId}, {"step", step}}).at("stepId").as_string());
  }
  // The outcome the host posted for `stepId`, once it has.
  json::object resultOf(const std::string& stepId) {
    json::object found;
    eventually([&] {
      const auto results = admin_.get("/admin/operator/results");
      for (const auto& result : results.as_array()) {
        if (result.at("stepId") == stepId.c_str()) found = result.at("result").as_object();
      }
      return !found.empty();
    });
    return found;
  }
  // The sentence a refused step came back with.
  std::string refusalOf(const std::string& runId, const json::value& step) {
    const auto result = resultOf(queueStep(runId, step));
    EXPECT_EQ(result.if_contains("outcome") ? result.at("outcome") : json::value(), "refused")
        << "the host said:\n" << testing::fileContents(hostLog());
    return result.if_contains("reason") ? std::string(result.at("reason").as_string()) : std::string();
  }
  // Who stopped `runId`, as the service was told; empty until it was.
  std::string stoppedBy(const std::string& runId) {
    const auto stops = admin_.get("/admin/operator/stops");
    for (const auto& stop : stops.as_array()) {
      if (stop.at("runId") == runId.c_str()) return std::string(stop.at("by").as_string());
    }
    return "";
  }
  testing::HostHome::Run operatorStop() { return home_.run({"operator-stop"}, home_.environment()); }
  static std::string stoppedPath(const std::string& runId) { return "/v1/mac/operator/runs/" + runId + "/stopped"; }

  const json::value listFiles = json::parse(R"({"kind":"list_files","query":"tax"})");
  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::HostHome home_;
  std::unique_ptr<bp::child> host_;
};

TEST_F(OperatorAgainstDevBrain, EveryStepIsAnsweredAndARunTheOwnerStoppedStaysStopped) {
  startHost();
  EXPECT_EQ(refusalOf("run-1", json::parse(R"({"kind":"look","app":"Safari","extra":1})")), notUnderstood);
  EXPECT_EQ(refusalOf("run-1", listFiles), notYet);
  EXPECT_TRUE(admin_.lastBodyTo("/v1/mac/operator/next").at("can").as_array().empty())
      << "a class this host cannot carry out is not advertised";
  EXPECT_THAT(testing::fileContents(hostLog()),
              HasSubstr("Quarl is operating this computer (run run-1). To stop it, run: quarl-companion operator-stop"));

  const auto stopped = operatorStop();
  EXPECT_EQ(stopped.code, 0) << stopped.log;
  EXPECT_TRUE(eventually([&] { return stoppedBy("run-1") == "menu"; }));

  EXPECT_EQ(refusalOf("run-2", listFiles), notYet);
  EXPECT_EQ(refusalOf("run-1", listFiles), stoppedHere) << "even with another run live";
  EXPECT_EQ(refusalOf("run-1", json::parse(R"({"kind":"list_apps","extra":true})")), notUnderstood);

  quitHost();
  EXPECT_EQ(stoppedBy("run-2"), "quit");
  const auto nobodyAnswers = operatorStop();
  EXPECT_EQ(nobodyAnswers.code, 1);
  EXPECT_THAT(nobodyAnswers.log, HasSubstr("Quarl is not running on this computer, so there was nothing to stop."));
}

TEST_F(OperatorAgainstDevBrain, AStopIsReportedUntilTheServiceTakesOrRefusesItEvenAcrossARestart) {
  startHost();
  admin_.post("/admin/faults", {{"path", stoppedPath("run-a")}, {"status", 500}});
  refusalOf("run-a", listFiles);
  operatorStop();
  EXPECT_TRUE(eventually([&] { return stoppedBy("run-a") == "menu"; })) << "reported on a later turn";
  EXPECT_EQ(admin_.requestsTo(stoppedPath("run-a")), 2);

  admin_.post("/admin/faults", {{"path", stoppedPath("run-b")}, {"status", 404}});
  refusalOf("run-b", listFiles);
  operatorStop();
  EXPECT_TRUE(eventually([&] { return admin_.requestsTo(stoppedPath("run-b")) == 1; }));
  const auto polls = admin_.requestsTo("/v1/mac/operator/next");
  EXPECT_TRUE(eventually([&] { return admin_.requestsTo("/v1/mac/operator/next") >= polls + 3; }));
  EXPECT_EQ(admin_.requestsTo(stoppedPath("run-b")), 1) << "a stop the service refused for good is not tried again";

  // The service is down for run-c's stop until after a restart.
  admin_.post("/admin/faults", {{"path", stoppedPath("run-c")}, {"status", 503}, {"times", 1000}});
  refusalOf("run-c", listFiles);
  operatorStop();
  EXPECT_TRUE(eventually([&] { return admin_.requestsTo(stoppedPath("run-c")) >= 2; }));
  quitHost();
  admin_.post("/admin/faults/clear");
  EXPECT_EQ(stoppedBy("run-c"), "");

  startHost();
  EXPECT_TRUE(eventually([&] { return stoppedBy("run-c") == "menu"; }));
  EXPECT_EQ(refusalOf("run-c", listFiles), stoppedHere) << "a run stopped before the restart stays stopped";
}

TEST_F(OperatorAgainstDevBrain, TheOwnersSwitchEndsALiveRunAndTheOperatorsPolls) {
  const auto off = home_.run({"operator", "off"}, home_.environment());
  EXPECT_EQ(off.code, 0) << "with no host running, the choice is saved for its next start";
  startHost();
  std::this_thread::sleep_for(milliseconds(300));
  EXPECT_EQ(admin_.requestsTo("/v1/mac/operator/next"), 0);

  EXPECT_EQ(home_.run({"operator", "on"}, home_.environment()).code, 0);
  EXPECT_EQ(refusalOf("run-1", listFiles), notYet);
  const auto switchedOff = home_.run({"operator", "off"}, home_.environment());
  EXPECT_EQ(switchedOff.code, 0);
  EXPECT_TRUE(eventually([&] { return stoppedBy("run-1") == "conditions"; }));
  const auto polls = admin_.requestsTo("/v1/mac/operator/next");
  std::this_thread::sleep_for(milliseconds(500));
  EXPECT_EQ(admin_.requestsTo("/v1/mac/operator/next"), polls) << "switched off, the link does not poll";
  EXPECT_EQ(json::parse(testing::fileContents(home_.config() / "defaults.json")).at("QuarlOperatorAllowed"), false);
  EXPECT_EQ(admin_.lastBodyTo("/v1/relay/heartbeat").at("operator").at("switchOn"), false)
      << "the service hears of the switch at once";
}

}  // namespace
}  // namespace quarl

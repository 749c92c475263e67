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
#include "../support/Documents.h"
#include "../support/FileContents.h"
#include "../support/HostHome.h"
#include "FileUploader.h"

namespace quarl {
namespace {

namespace bp = boost::process;
namespace fs = std::filesystem;
namespace json = boost::json;
using namespace std::chrono;
using ::testing::HasSubstr;

constexpr std::string_view notUnderstood = "This Mac does not know that step, so it did nothing.";
constexpr std::string_view noWords = "That search has no words Quarl can look for.";
constexpr std::string_view stoppedHere = "You stopped Quarl on the Mac, so this step did not run.";

// quarl-companion running against devbrain, signed in, with operator mode switched on; devbrain
// holds each poll only briefly, so that the link turns quickly.
class OperatorAgainstDevBrain : public ::testing::Test {
 protected:
  OperatorAgainstDevBrain() : admin_(brain_), home_(brain_) {
    admin_.post("/admin/settings", {{"operatorHoldMs", 100}});
    home_.signIn(admin_, {{"QuarlOperatorAllowed", true}});
  }
  ~OperatorAgainstDevBrain() override {
    if (host_) quitHost();
  }

  void startHost() {
    host_ = std::make_unique<bp::child>(home_.start(home_.environment(), hostLog()));
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

  std::string queueStep(const std::string& runId, const json::value& step, const json::value& permit = nullptr) {
    json::object body{{"runId", runId}, {"step", step}};
    if (!permit.is_null()) body["permit"] = permit;
    return std::string(admin_.post("/admin/operator/steps", body).at("stepId").as_string());
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

  // A step every host refuses, and only once it has admitted it: a search with no words.
  const json::value listFiles = json::parse(R"({"kind":"list_files","query":"***"})");
  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::HostHome home_;
  std::unique_ptr<bp::child> host_;
};

TEST_F(OperatorAgainstDevBrain, EveryStepIsAnsweredAndARunTheOwnerStoppedStaysStopped) {
  startHost();
  EXPECT_EQ(refusalOf("run-1", json::parse(R"({"kind":"look","app":"Safari","extra":1})")), notUnderstood);
  EXPECT_EQ(refusalOf("run-1", listFiles), noWords);
  EXPECT_EQ(admin_.lastBodyTo("/v1/mac/operator/next").at("can"), json::array{"files"})
      << "files is the one class this host carries out";
  EXPECT_THAT(testing::fileContents(hostLog()),
              HasSubstr("Quarl is operating this computer (run run-1). To stop it, run: quarl-companion operator-stop"));

  const auto stopped = operatorStop();
  EXPECT_EQ(stopped.code, 0) << stopped.log;
  EXPECT_TRUE(eventually([&] { return stoppedBy("run-1") == "menu"; }));

  EXPECT_EQ(refusalOf("run-2", listFiles), noWords);
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

  // devbrain may still hold the quit host's last poll for a moment and would hand a step to
  // that closed connection, so the step waits for the new host's own poll.
  const auto pollsBefore = admin_.requestsTo("/v1/mac/operator/next");
  startHost();
  EXPECT_TRUE(eventually([&] { return stoppedBy("run-c") == "menu"; }));
  EXPECT_TRUE(eventually([&] { return admin_.requestsTo("/v1/mac/operator/next") > pollsBefore; }));
  EXPECT_EQ(refusalOf("run-c", listFiles), stoppedHere) << "a run stopped before the restart stays stopped";
}

TEST_F(OperatorAgainstDevBrain, TheOwnersSwitchEndsALiveRunAndTheOperatorsPolls) {
  const auto off = home_.run({"operator", "off"}, home_.environment());
  EXPECT_EQ(off.code, 0) << "with no host running, the choice is saved for its next start";
  startHost();
  std::this_thread::sleep_for(milliseconds(300));
  EXPECT_EQ(admin_.requestsTo("/v1/mac/operator/next"), 0);

  EXPECT_EQ(home_.run({"operator", "on"}, home_.environment()).code, 0);
  EXPECT_EQ(refusalOf("run-1", listFiles), noWords);
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

void write(const fs::path& path, const std::string& contents) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << contents;
}

TEST_F(OperatorAgainstDevBrain, FilesAreFoundReadAndBroughtBackInCheckedChunks) {
  write(home_.path() / "Documents/Tax notes.txt", "The tax return for 2025 is due in April.");
  write(home_.path() / "Documents/Tax summary.pdf", testing::pdfWithPages({{"Summary of taxes"}, {"Owed: 0"}}));
  write(home_.path() / "Desktop/tax page.html", "<h1>Refund</h1><script>track()</script><p>arrives soon</p>");
  write(home_.path() / ".ssh/tax.md", "secret");
  fs::create_symlink(home_.path() / ".ssh/tax.md", home_.path() / "Documents/tax keys.md");
  std::string scan;
  for (std::int64_t i = 0; i < 300'000; ++i) scan += static_cast<char>((i * 7919) % 251);
  write(home_.path() / "Downloads/Tax scan.pdf", scan);
  admin_.post("/admin/settings", {{"fileChunkTakeMax", 100'000}});
  startHost();

  const auto listed = resultOf(queueStep("run-f", json::parse(R"({"kind":"list_files","query":"TAX"})")));
  std::map<std::string, std::string> refs;
  for (const auto& file : listed.at("result").at("files").as_array()) {
    refs[std::string(file.at("name").as_string())] = std::string(file.at("ref").as_string());
  }
  ASSERT_EQ(refs.size(), 5u) << json::serialize(listed);
  const auto read = [&](const std::string& name, const json::value& permit) {
    return resultOf(queueStep("run-f", json::object{{"kind", "read_file"}, {"ref", refs[name]}}, permit));
  };
  const json::value autoRead = json::parse(R"({"mode":"auto_read"})");
  EXPECT_EQ(read("Tax notes.txt", autoRead).at("result").at("text"), "The tax return for 2025 is due in April.");
  EXPECT_EQ(read("Tax summary.pdf", autoRead).at("result").at("text"), "Summary of taxes\n\nOwed: 0")
      << "read by poppler in a child process";
  EXPECT_EQ(read("tax page.html", autoRead).at("result").at("text"), "Refund\narrives soon");
  EXPECT_EQ(read("tax keys.md", autoRead).at("reason"),
            "Quarl never reads keys, passwords or secrets on the Mac, so it did not open that file.");
  const auto held = read("Tax notes.txt", nullptr);
  EXPECT_EQ(held.at("outcome"), "needs_press");
  EXPECT_EQ(held.at("sentence"), "Let Quarl read Documents?");

  // devbrain keeps 100,000 bytes of each chunk, and the connection of the third chunk breaks:
  // the Mac asks what arrived and goes on from there.
  const auto probe = queueStep("run-f", listFiles);  // tells the id the next step will get
  resultOf(probe);
  const auto sendId = "step-" + std::to_string(std::stoi(probe.substr(5)) + 1);
  const auto filePath = "/v1/mac/operator/steps/" + sendId + "/file";
  admin_.post("/admin/faults", {{"path", filePath}, {"drop", true}, {"skip", 3}});
  EXPECT_EQ(queueStep("run-f", json::object{{"kind", "send_file"}, {"ref", refs["Tax scan.pdf"]}}), sendId);
  const auto sent = resultOf(sendId);
  ASSERT_EQ(sent.at("outcome"), "done") << json::serialize(sent) << testing::fileContents(hostLog());
  const auto expected = FileUploader::digest((home_.path() / "Downloads/Tax scan.pdf").string(), 65536);
  EXPECT_EQ(sent.at("result").at("bytes"), 300'000);
  EXPECT_EQ(sent.at("result").at("sha256"), expected->sha256.c_str());
  const auto files = admin_.get("/admin/operator/files").as_array();
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files[0].at("sha256"), expected->sha256.c_str()) << "the bytes that arrived are the file's";
  EXPECT_EQ(files[0].at("complete"), true);
  std::vector<std::string> offsets;
  for (const auto& request : admin_.requests()) {
    if (request.at("path") == filePath.c_str() && request.at("method") == "PUT") {
      offsets.emplace_back(request.at("headers").at("x-quarl-offset").as_string());
    }
  }
  EXPECT_EQ(offsets, (std::vector<std::string>{"0", "100000", "200000", "200000"}))
      << "the broken chunk is sent again from what the service holds";
}

TEST_F(OperatorAgainstDevBrain, TheCompanionsOwnFilesAndHiddenFoldersAreNeverOpenedAndAStopEndsATransfer) {
  write(home_.path() / ".aws/credentials", "aws_secret_access_key = hidden-word");
  std::string big(3'000'000, 'x');
  write(home_.path() / "Documents/big.txt", big);
  fs::create_symlink(home_.config() / "keychain.json", home_.path() / "Documents/quarl keys.json");
  fs::create_symlink(home_.path() / ".aws/credentials", home_.path() / "Documents/aws.txt");
  admin_.post("/admin/settings", {{"fileChunkTakeMax", 100'000}});
  startHost();

  const json::value autoRead = json::parse(R"({"mode":"auto_read"})");
  const std::string secret = "Quarl never reads keys, passwords or secrets on the Mac, so it did not open that file.";
  EXPECT_EQ(refusalOf("run-k", json::parse(R"({"kind":"list_files","query":"x","folder":".config/quarl"})")), secret);
  const auto listed = resultOf(queueStep("run-k", json::parse(R"({"kind":"list_files","query":"quarl keys"})")));
  ASSERT_EQ(listed.at("result").at("files").as_array().size(), 1u) << json::serialize(listed);
  const auto ref = listed.at("result").at("files").at(0).at("ref");
  const auto read = resultOf(queueStep("run-k", json::object{{"kind", "read_file"}, {"ref", ref}}, autoRead));
  EXPECT_EQ(read.at("reason"), secret.c_str()) << "the keychain, reached through a link from Documents";
  for (const auto* word : {"refreshToken", "hidden-word"}) {
    const auto found = resultOf(queueStep("run-k", json::object{{"kind", "list_files"}, {"query", word}}));
    EXPECT_TRUE(found.at("result").at("files").as_array().empty()) << word << ": " << json::serialize(found);
  }

  // Stopped while the file is on its way: no chunk after the next, and no outcome for the step.
  const auto bigRef = resultOf(queueStep("run-k", json::parse(R"({"kind":"list_files","query":"big"})")))
                          .at("result").at("files").at(0).at("ref");
  const auto probe = queueStep("run-k", listFiles);
  resultOf(probe);
  const auto sendId = "step-" + std::to_string(std::stoi(probe.substr(5)) + 1);
  const auto filePath = "/v1/mac/operator/steps/" + sendId + "/file";
  admin_.post("/admin/faults", {{"path", filePath}, {"pass", true}, {"delayMs", 300}, {"times", 100}});
  queueStep("run-k", json::object{{"kind", "send_file"}, {"ref", bigRef}});
  ASSERT_TRUE(eventually([&] { return admin_.requestsTo(filePath) >= 3; }));
  EXPECT_EQ(operatorStop().code, 0);
  std::this_thread::sleep_for(milliseconds(1500));
  const auto chunks = admin_.requestsTo(filePath);
  std::this_thread::sleep_for(milliseconds(1000));
  EXPECT_EQ(admin_.requestsTo(filePath), chunks) << "the transfer ended";
  EXPECT_LT(chunks, 10);
  EXPECT_EQ(admin_.requestsTo("/v1/mac/operator/steps/" + sendId + "/result"), 0);
  EXPECT_EQ(stoppedBy("run-k"), "menu");
  EXPECT_THAT(testing::fileContents(hostLog()), HasSubstr("quarl: operator step " + sendId + " ended with its run"));
}

}  // namespace
}  // namespace quarl

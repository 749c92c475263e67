#include <signal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>

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
using testing::eventually;

constexpr std::string_view notUnderstood = "This Mac does not know that step, so it did nothing.";
constexpr std::string_view noWords = "That search has no words Quarl can look for.";
constexpr std::string_view stoppedHere = "You stopped Quarl on the Mac, so this step did not run.";
constexpr std::string_view secret = "Quarl never reads keys, passwords or secrets on the Mac, so it did not open that file.";
constexpr std::string_view nextPath = "/v1/mac/operator/next";

// quarl-companion running against devbrain, signed in, with operator mode switched on; devbrain
// holds each poll only briefly, so that the link turns quickly.
class OperatorAgainstDevBrain : public ::testing::Test {
 protected:
  OperatorAgainstDevBrain() : admin_(brain_), home_(brain_) {
    admin_.post("/admin/settings", {{"operatorHoldMs", 100}});
    home_.signIn(admin_, {{"QuarlOperatorAllowed", true}});
  }
  ~OperatorAgainstDevBrain() override { if (host_) quitHost(); }

  void startHost() { host_ = std::make_unique<bp::child>(home_.start(home_.environment(), hostLog())); }
  // Ends the host as the system ends it at log-out: SIGTERM, and waits for it to exit.
  void quitHost() { ::kill(host_->id(), SIGTERM); host_->wait(); host_.reset(); }
  fs::path hostLog() const { return home_.path() / "host.log"; }

  // `pressed`: true for the owner's press of this step, {"runId", "step"} for a press of another.
  std::string queueStep(const std::string& runId, const json::value& step, const json::value& permit = nullptr,
                        const json::value& pressed = nullptr) {
    json::object body{{"runId", runId}, {"step", step}};
    if (!permit.is_null()) body["permit"] = permit;
    if (!pressed.is_null()) body["pressed"] = pressed;
    return std::string(admin_.post("/admin/operator/steps", body).at("stepId").as_string());
  }
  // The outcome the host posted for `stepId`, once it has.
  json::object resultOf(const std::string& stepId) {
    json::object found;
    eventually([&] {
      const auto results = admin_.get("/admin/operator/results");
      for (const auto& result : results.as_array())
        if (result.at("stepId") == stepId.c_str()) found = result.at("result").as_object();
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
    for (const auto& stop : stops.as_array())
      if (stop.at("runId") == runId.c_str()) return std::string(stop.at("by").as_string());
    return "";
  }
  testing::HostHome::Run companion(const std::vector<std::string>& arguments) { return home_.run(arguments, home_.environment()); }
  testing::HostHome::Run operatorStop() { return companion({"operator-stop"}); }
  static std::string stoppedPath(const std::string& runId) { return "/v1/mac/operator/runs/" + runId + "/stopped"; }

  // A step every host refuses, and only once it has admitted it: a search with no words.
  const json::value listFiles = json::parse(R"({"kind":"list_files","query":"***"})");
  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::HostHome home_;
  std::unique_ptr<bp::child> host_;
};

TEST_F(OperatorAgainstDevBrain, EveryStepIsAnsweredAndARunTheOwnerStoppedStaysStoppedEvenAcrossARestart) {
  EXPECT_EQ(companion({"operator", "off"}).code, 0) << "with no host running, the choice is saved for its next start";
  startHost();
  std::this_thread::sleep_for(milliseconds(300));
  EXPECT_EQ(admin_.requestsTo(nextPath), 0);
  EXPECT_EQ(companion({"operator", "on"}).code, 0);
  EXPECT_EQ(refusalOf("run-1", json::parse(R"({"kind":"look","app":"Safari","extra":1})")), notUnderstood);
  EXPECT_EQ(refusalOf("run-1", listFiles), noWords);
  EXPECT_EQ(admin_.lastBodyTo(nextPath).at("can"), json::array{"files"}) << "files is the one class this host carries out";
  EXPECT_THAT(testing::fileContents(hostLog()),
              HasSubstr("Quarl is operating this computer (run run-1). To stop it, run: quarl-companion operator-stop"));

  // run-1's stop is not taken at first and is reported on a later turn; run-2's is refused for good.
  admin_.post("/admin/faults", {{"path", stoppedPath("run-1")}, {"status", 500}});
  EXPECT_EQ(operatorStop().code, 0);
  EXPECT_TRUE(eventually([&] { return stoppedBy("run-1") == "menu"; }));
  EXPECT_EQ(admin_.requestsTo(stoppedPath("run-1")), 2);
  admin_.post("/admin/faults", {{"path", stoppedPath("run-2")}, {"status", 404}});
  EXPECT_EQ(refusalOf("run-2", listFiles), noWords);
  EXPECT_EQ(refusalOf("run-1", listFiles), stoppedHere) << "even with another run live";
  EXPECT_EQ(refusalOf("run-1", json::parse(R"({"kind":"list_apps","extra":true})")), notUnderstood);
  operatorStop();
  EXPECT_TRUE(eventually([&] { return admin_.requestsTo(stoppedPath("run-2")) == 1; }));
  const auto polls = admin_.requestsTo(nextPath);
  EXPECT_TRUE(eventually([&] { return admin_.requestsTo(nextPath) >= polls + 3; }));
  EXPECT_EQ(admin_.requestsTo(stoppedPath("run-2")), 1) << "a stop the service refused for good is not tried again";

  // The service is down for run-3's stop until after a restart; run-4 is live when the host quits.
  admin_.post("/admin/faults", {{"path", stoppedPath("run-3")}, {"status", 503}, {"times", 1000}});
  refusalOf("run-3", listFiles);
  operatorStop();
  EXPECT_TRUE(eventually([&] { return admin_.requestsTo(stoppedPath("run-3")) >= 2; }));
  EXPECT_EQ(refusalOf("run-4", listFiles), noWords);
  const auto running = home_.printed({"status"});
  EXPECT_THAT(running, HasSubstr("Quarl is running on this computer.\n"));
  EXPECT_THAT(running, HasSubstr("\nWhatsApp: not switched on\n"));
  EXPECT_THAT(running, HasSubstr("\nOperator mode: on, mode Ask me; run run-4 is live\n"));
  quitHost();
  EXPECT_EQ(stoppedBy("run-4"), "quit");
  EXPECT_EQ(stoppedBy("run-3"), "");
  const auto kept = home_.printed({"status"});
  EXPECT_THAT(kept, HasSubstr("No running Quarl answered on this computer; this is what it keeps.\nCredentials are kept "
                              "for device "));
  EXPECT_THAT(kept, HasSubstr("\nOperator mode: on\n"));
  const auto nobodyAnswers = operatorStop();
  EXPECT_EQ(nobodyAnswers.code, 1);
  EXPECT_THAT(nobodyAnswers.log, HasSubstr("Quarl is not running on this computer, so there was nothing to stop."));

  // The next step waits for the new host's own poll: devbrain may still hold the quit host's last one.
  admin_.post("/admin/faults/clear");
  const auto pollsBefore = admin_.requestsTo(nextPath);
  startHost();
  EXPECT_TRUE(eventually([&] { return stoppedBy("run-3") == "menu"; }));
  EXPECT_TRUE(eventually([&] { return admin_.requestsTo(nextPath) > pollsBefore; }));
  EXPECT_EQ(refusalOf("run-3", listFiles), stoppedHere) << "a run stopped before the restart stays stopped";

  // The owner's switch ends the live run and the link's polls, and the service hears of it at once.
  EXPECT_EQ(refusalOf("run-5", listFiles), noWords);
  EXPECT_EQ(companion({"operator", "off"}).code, 0);
  EXPECT_TRUE(eventually([&] { return stoppedBy("run-5") == "conditions"; }));
  const auto pollsSwitchedOff = admin_.requestsTo(nextPath);
  std::this_thread::sleep_for(milliseconds(500));
  EXPECT_EQ(admin_.requestsTo(nextPath), pollsSwitchedOff) << "switched off, the link does not poll";
  EXPECT_EQ(json::parse(testing::fileContents(home_.config() / "defaults.json")).at("QuarlOperatorAllowed"), false);
  EXPECT_EQ(admin_.lastBodyTo("/v1/relay/heartbeat").at("operator").at("switchOn"), false);
}

void write(const fs::path& path, const std::string& contents) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << contents;
}

TEST_F(OperatorAgainstDevBrain, FilesAreFoundReadAndBroughtBackInCheckedChunksButNoSecretAndAStopEndsATransfer) {
  const auto home = home_.path();
  write(home / "Documents/Tax notes.txt", "The tax return for 2025 is due in April.");
  write(home / "Documents/Tax summary.pdf", testing::pdfWithPages({{"Summary of taxes"}, {"Owed: 0"}}));
  write(home / "Desktop/tax page.html", "<h1>Refund</h1><script>track()</script><p>arrives soon</p>");
  write(home / "Documents/Tax ledger.txt", std::string(3'000'000, 'x'));
  write(home / ".ssh/tax.md", "secret");
  fs::create_symlink(home / ".ssh/tax.md", home / "Documents/tax keys.md");
  fs::create_symlink(home_.config() / "keychain.json", home / "Documents/quarl keys.json");
  std::string scan;
  for (std::int64_t i = 0; i < 300'000; ++i) scan += static_cast<char>((i * 7919) % 251);
  write(home / "Downloads/Tax scan.pdf", scan);
  admin_.post("/admin/settings", {{"fileChunkTakeMax", 100'000}});
  startHost();

  const auto found = [&](const std::string& query) {
    const auto listed = resultOf(queueStep("run-f", json::object{{"kind", "list_files"}, {"query", query}}));
    std::map<std::string, json::value> refs;
    for (const auto& file : listed.at("result").at("files").as_array()) refs[std::string(file.at("name").as_string())] = file.at("ref");
    return refs;
  };
  const auto read = [&](const json::value& ref, const json::value& permit = json::parse(R"({"mode":"auto_read"})")) {
    return resultOf(queueStep("run-f", json::object{{"kind", "read_file"}, {"ref", ref}}, permit));
  };
  auto refs = found("TAX");
  ASSERT_EQ(refs.size(), 6u);
  EXPECT_EQ(read(refs["Tax notes.txt"]).at("result").at("text"), "The tax return for 2025 is due in April.");
  EXPECT_EQ(read(refs["Tax summary.pdf"]).at("result").at("text"), "Summary of taxes\n\nOwed: 0")
      << "read by poppler in a child process";
  EXPECT_EQ(read(refs["tax page.html"]).at("result").at("text"), "Refund\narrives soon");
  EXPECT_EQ(read(refs["tax keys.md"]).at("reason"), secret.data()) << "a link into a hidden folder";
  const auto held = read(refs["Tax notes.txt"], nullptr);
  EXPECT_TRUE(held.at("outcome") == "needs_press" && held.at("sentence") == "Let Quarl read Documents?") << held;
  const json::object readNotes{{"kind", "read_file"}, {"ref", refs["Tax notes.txt"]}};
  const json::object readSummary{{"kind", "read_file"}, {"ref", refs["Tax summary.pdf"]}};
  EXPECT_EQ(resultOf(queueStep("run-f", readNotes, nullptr, true)).at("outcome"), "done") << "pressed by the owner";
  EXPECT_EQ(resultOf(queueStep("run-f", readNotes, nullptr, json::object{{"runId", "run-f"}, {"step", readSummary}}))
                .at("reason"),
            "That press was for a different act, so nothing was done.");
  EXPECT_EQ(resultOf(queueStep("run-f", readNotes, nullptr, json::object{{"runId", "run-g"}, {"step", readNotes}}))
                .at("reason"),
            "That press was for a different act, so nothing was done.")
      << "a press from another run";

  // The companion's own folder, reached by name or through a link from Documents, is never opened.
  EXPECT_EQ(refusalOf("run-f", json::parse(R"({"kind":"list_files","query":"x","folder":".config/quarl"})")), secret);
  EXPECT_EQ(read(found("quarl keys")["quarl keys.json"]).at("reason"), secret.data());
  EXPECT_TRUE(found("refreshToken").empty()) << "the keychain's text is not searched";

  // A step answered first tells the ids devbrain gives the next two, both sending a file.
  const auto probe = queueStep("run-f", listFiles);
  resultOf(probe);
  const auto stepAfter = [](const std::string& id) { return "step-" + std::to_string(std::stoi(id.substr(5)) + 1); };
  const auto sendId = stepAfter(probe), stopId = stepAfter(sendId);
  // devbrain keeps 100,000 bytes of each chunk and the third's connection breaks: the Mac asks what arrived.
  const auto filePath = "/v1/mac/operator/steps/" + sendId + "/file";
  admin_.post("/admin/faults", {{"path", filePath}, {"drop", true}, {"skip", 3}});
  EXPECT_EQ(queueStep("run-f", json::object{{"kind", "send_file"}, {"ref", refs["Tax scan.pdf"]}}), sendId);
  const auto sent = resultOf(sendId);
  ASSERT_EQ(sent.at("outcome"), "done") << sent << testing::fileContents(hostLog());
  const auto sha256 = FileUploader::digest((home / "Downloads/Tax scan.pdf").string(), 65536)->sha256;
  EXPECT_TRUE(sent.at("result").at("bytes") == 300'000 && sent.at("result").at("sha256") == sha256.c_str()) << sent;
  const auto files = admin_.get("/admin/operator/files").as_array();
  EXPECT_TRUE(files.size() == 1u && files[0].at("sha256") == sha256.c_str() && files[0].at("complete") == true)
      << "the bytes that arrived are the file's: " << files;
  std::vector<std::string> offsets;
  for (const auto& request : admin_.requests())
    if (request.at("path") == filePath.c_str() && request.at("method") == "PUT")
      offsets.emplace_back(request.at("headers").at("x-quarl-offset").as_string());
  EXPECT_EQ(offsets, (std::vector<std::string>{"0", "100000", "200000", "200000"}))
      << "the broken chunk is sent again from what the service holds";

  // Stopped while a file is on its way: no chunk after the next, and no outcome for the step.
  const auto stopPath = "/v1/mac/operator/steps/" + stopId + "/file";
  admin_.post("/admin/faults", {{"path", stopPath}, {"pass", true}, {"delayMs", 300}, {"times", 100}});
  EXPECT_EQ(queueStep("run-f", json::object{{"kind", "send_file"}, {"ref", refs["Tax ledger.txt"]}}), stopId);
  ASSERT_TRUE(eventually([&] { return admin_.requestsTo(stopPath) >= 3; }));
  EXPECT_EQ(operatorStop().code, 0);
  std::this_thread::sleep_for(milliseconds(1500));
  const auto chunks = admin_.requestsTo(stopPath);
  std::this_thread::sleep_for(milliseconds(1000));
  EXPECT_EQ(admin_.requestsTo(stopPath), chunks) << "the transfer ended";
  EXPECT_LT(chunks, 10);
  EXPECT_EQ(admin_.requestsTo("/v1/mac/operator/steps/" + stopId + "/result"), 0);
  EXPECT_THAT(testing::fileContents(hostLog()), HasSubstr("quarl: operator step " + stopId + " ended with its run"));
}

}  // namespace
}  // namespace quarl

#include <stdlib.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/CapturingLogSink.h"
#include "../support/DevBrainAdmin.h"
#include "../support/FakeCompanionHost.h"
#include "../support/FileContents.h"
#include "../support/HostHome.h"
#include "../support/ManualClock.h"
#include "../support/MemorySettingsStore.h"
#include "../support/MessagesStore.h"
#include "../support/SignedInCompanion.h"
#include "../support/TemporaryDirectory.h"
#include "Base64.h"
#include "Companion.h"
#include "SettingsKeys.h"
#include "platform/linux/Keychain_linux.h"

namespace quarl {
namespace {

namespace asio = boost::asio;
namespace fs = std::filesystem;
namespace json = boost::json;
using namespace std::chrono;
using ::testing::HasSubstr;

// A relay job to +15550001.
json::object job(const std::string& channelKind, const std::string& body, const json::array& attachments = {}) {
  json::object job{{"channelKind", channelKind}, {"conversationRef", "+15550001"}, {"body", body}};
  if (!attachments.empty()) job["attachments"] = attachments;
  return job;
}
json::object file(const std::string& filename, const std::string& mimeType, const std::string& bytes) {
  return {{"filename", filename}, {"mimeType", mimeType}, {"dataBase64", base64Encode(bytes)}};
}
std::string queue(testing::DevBrainAdmin& admin, const json::object& job) {
  return std::string(admin.post("/admin/jobs", job).at("id").as_string());
}

// quarl-companion --once relaying jobs queued on devbrain through the Messages stand-in, which
// writes the rows Messages would into a real store.
class RelayAgainstDevBrain : public ::testing::Test {
 protected:
  RelayAgainstDevBrain() : admin_(brain_), home_(brain_) {
    admin_.post("/admin/settings", {{"autoApprove", true}, {"pairingIntervalSeconds", 0}});
    testing::MessagesStore store(home_.store());
    store.message({.guid = "from-ann", .chat = store.chat("+15550001", "iMessage", {store.handle("+15550001")}), .handle = 1,
                   .text = "are you coming?", .date = testing::appleNanoseconds(system_clock::now() - 10min)});
    fs::create_directories(temporary());
  }

  std::string standInLog() const { return (home_.path() / "standin.log").string(); }
  // The host's own temporary folder, where it stages files and takes snapshots.
  fs::path temporary() const { return home_.path() / "tmp"; }

  testing::HostHome::Run runOnce(const std::string& mode, const std::string& failCall = "",
                                 const std::string& runner = QUARL_STANDIN_PATH) {
    auto environment = home_.environment();
    environment["QUARL_OSASCRIPT"] = runner;
    environment["QUARL_STANDIN_MODE"] = mode;
    environment["QUARL_STANDIN_FAIL_CALL"] = failCall;
    environment["QUARL_STANDIN_LOG"] = standInLog();
    environment["TMPDIR"] = temporary().string();
    return home_.run({"--once"}, environment);
  }

  json::object reportOf(const std::string& jobId) {
    const auto reports = admin_.get("/admin/reports");
    for (const auto& report : reports.as_array()) if (report.at("jobId") == jobId.c_str()) return report.as_object();
    ADD_FAILURE() << "no report for " << jobId;
    return {};
  }

  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::HostHome home_;
};

TEST_F(RelayAgainstDevBrain, AConfirmedSendIsReportedOkAndNotCapturedAsANewMessage) {
  const auto sent = queue(admin_, job("sms", "On my way — \"10 min\"\nsee you", {file("../map.png", "image/png", "PNG")}));
  const auto [code, log] = runOnce("sent");
  ASSERT_EQ(code, 0) << log;
  const auto report = reportOf(sent);
  EXPECT_EQ(report.at("ok"), true) << log;
  EXPECT_THAT(std::string(report.at("providerMessageId").as_string()), ::testing::MatchesRegex("standin-[0-9]+-2"))
      << "the text's row, the second written";
  EXPECT_THAT(log, HasSubstr("quarl: relay: job " + sent + " sent"));
  EXPECT_THAT(log, HasSubstr("quarl: capture recognised its own send in <private>"));

  const auto scripts = testing::fileContents(standInLog());
  EXPECT_THAT(scripts, HasSubstr("file\t+15550001\tiMessage\t")) << "their newest message came over iMessage";
  EXPECT_THAT(scripts, HasSubstr("-map.png\n")) << "the file keeps its name but not its folder part";
  EXPECT_THAT(scripts, HasSubstr("text\t+15550001\tiMessage\tOn my way — \"10 min\"\rsee you\n"))
      << "Messages stores the line break as AppleScript's return";
  EXPECT_TRUE(fs::is_empty(temporary())) << "staged files and snapshots are removed";

  // A restart reads the newest rows again; the relayed ones stay the Mac's own.
  const auto again = runOnce("sent");
  const auto ingested = admin_.get("/admin/ingested").as_array();
  ASSERT_EQ(ingested.size(), 1u) << again.log;
  EXPECT_EQ(ingested[0].at("body"), "are you coming?");
  EXPECT_EQ(admin_.get("/admin/stats").at("duplicateIngests"), 0);
}

TEST_F(RelayAgainstDevBrain, RefusalsAndFailuresAreReportedInTheirOwnSentences) {
  struct Refusal {
    std::string mode, failCall, runner;
    std::vector<json::object> jobs;  // relayed in one run, each failing with `reason`
    ::testing::Matcher<std::string> reason;
  };
  const std::vector<Refusal> refusals{
      {"error:22", "", QUARL_STANDIN_PATH, {job("imessage", "hello")},
       "Messages did not deliver this — it did not go, and it is marked Not Delivered there (error 22). Quarl did not "
       "send it, whatever the card said before."},
      // The store's third script, after the one above: file 2 of this job.
      {"sent", "3", QUARL_STANDIN_PATH, {job("imessage", "two files", {file("a.txt", "text/plain", "A"), file("b.txt", "text/plain", "B")})},
       ::testing::StartsWith("file 2 of 2 did not go, so the message was not sent either: Messages could not send "
                             "that: execution error: Messages got an error")},
      {"sent", "", QUARL_STANDIN_PATH, {job("whatsapp", "hi")}, "WhatsApp Web is not linked on this Mac. Open Quarl and scan the code."},
      {"unauthorised", "", QUARL_STANDIN_PATH, {job("imessage", "x"), job("imessage", "y")},
       "macOS has not allowed Quarl to control Messages. Turn Quarl on in System Settings → Privacy & Security → "
       "Automation → Messages."},
      {"sent", "", "/nonexistent/osascript", {job("imessage", "z")}, "This computer has no Messages app, so nothing was sent."},
  };
  for (const auto& refusal : refusals) {
    std::vector<std::string> ids;
    for (const auto& each : refusal.jobs) ids.push_back(queue(admin_, each));
    const auto run = runOnce(refusal.mode, refusal.failCall, refusal.runner);
    ASSERT_EQ(run.code, 0) << run.log;
    for (const auto& id : ids) EXPECT_THAT(std::string(reportOf(id).at("failureReason").as_string()), refusal.reason) << run.log;
  }
  EXPECT_THAT(testing::fileContents(standInLog()), ::testing::Not(HasSubstr("two files"))) << "no text after a failed file";
}

// A coordinator in this process on a manual clock, relaying through the Messages stand-in
// against devbrain: the waits of confirmation are the clock's, the child process and the store
// are real.
class RelayPassOnAManualClock : public ::testing::Test {
 protected:
  RelayPassOnAManualClock() : admin_(brain_) {
    testing::MessagesStore store(storePath());
    store.chat("+15550001", "iMessage", {store.handle("+15550001")});
    ::setenv("QUARL_OSASCRIPT", QUARL_STANDIN_PATH, 1);
    ::setenv("QUARL_STANDIN_STORE", storePath().c_str(), 1);
    ::setenv("QUARL_STANDIN_MODE", "unsent", 1);
    companion_ = testing::signedInCompanion(brain_, admin_, io_, clock_, defaults_, keychain_, host_, storePath());
  }
  ~RelayPassOnAManualClock() override {
    for (const char* name : {"QUARL_OSASCRIPT", "QUARL_STANDIN_STORE", "QUARL_STANDIN_MODE"}) ::unsetenv(name);
    QuarlLog::install(nullptr);
  }

  std::string storePath() const { return (folder_.path() / "chat.db").string(); }
  // Runs the loop until `done` holds; network and child processes take real time.
  void runUntil(const std::function<bool()>& done) {
    for (int i = 0; i < 1000 && !done(); ++i) {
      io_.restart();
      io_.run_for(10ms);
    }
    ASSERT_TRUE(done()) << ::testing::PrintToString(log_->lines());
  }

  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::TemporaryDirectory folder_;
  asio::io_context io_;
  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>(system_clock::now() - 1s);
  std::shared_ptr<testing::MemorySettingsStore> defaults_ = std::make_shared<testing::MemorySettingsStore>();
  std::shared_ptr<FileKeychain> keychain_ = std::make_shared<FileKeychain>(folder_.path(), *clock_);
  std::shared_ptr<testing::FakeCompanionHost> host_ = std::make_shared<testing::FakeCompanionHost>(clock_);
  std::shared_ptr<testing::CapturingLogSink> log_ = testing::CapturingLogSink::installed();
  std::shared_ptr<Companion> companion_;
};

TEST_F(RelayPassOnAManualClock, PassesNeverOverlapAndAnUnmarkedSendIsWatchedForFortyFourSeconds) {
  const auto id = queue(admin_, job("imessage", "hello"));
  asio::co_spawn(io_, companion_->guardedRelayPass(), asio::detached);
  runUntil([&] { return clock_->sleepsBegun() == 1; });  // sent, and waiting for the first look

  // The 3 s timer firing now finds the pass running and does nothing.
  asio::co_spawn(io_, companion_->guardedRelayPass(), asio::detached);
  io_.restart();
  io_.run_for(50ms);
  EXPECT_EQ(admin_.requestsTo("/v1/relay/jobs/claim"), 1);

  // Each look sees a row not marked sent, and waits again.
  for (std::size_t sleeps = 2; const auto delay : {2s, 5s, 12s}) {
    clock_->advance(delay);
    runUntil([&, expected = sleeps++] { return clock_->sleepsBegun() == expected; });
  }
  EXPECT_TRUE(admin_.get("/admin/reports").as_array().empty()) << "not reported before the last look";
  clock_->advance(25s);
  runUntil([&] { return !admin_.get("/admin/reports").as_array().empty(); });
  EXPECT_EQ(admin_.get("/admin/reports").as_array().at(0).at("ok"), true);
  EXPECT_THAT(log_->lines(), ::testing::Contains("quarl: relay: job " + id + " reported sent WITHOUT CONFIRMATION — "
                                                 "Messages had 1 row(s) and marked none of them sent or failed "));
}

}  // namespace
}  // namespace quarl

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/DevBrainAdmin.h"
#include "../support/HostHome.h"
#include "../support/FileContents.h"
#include "../support/MessagesStore.h"
#include "Base64.h"

namespace quarl {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
using namespace std::chrono;
using ::testing::HasSubstr;

// quarl-companion --once relaying jobs queued on devbrain through the Messages stand-in, which
// writes the rows Messages would into a real store.
class RelayAgainstDevBrain : public ::testing::Test {
 protected:
  RelayAgainstDevBrain() : admin_(brain_), home_(brain_) {
    admin_.post("/admin/settings", {{"autoApprove", true}, {"pairingIntervalSeconds", 0}});
    testing::MessagesStore store(home_.store());
    const auto ann = store.handle("+15550001");
    const auto chat = store.chat("+15550001", "iMessage", {ann});
    store.message({.guid = "from-ann", .chat = chat, .handle = ann, .text = "are you coming?",
                   .date = testing::appleNanoseconds(time_point_cast<SystemTime::duration>(system_clock::now()) - 10min)});
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

  std::string queue(const json::object& job) { return std::string(admin_.post("/admin/jobs", job).at("id").as_string()); }

  json::object reportOf(const std::string& jobId) {
    const auto reports = admin_.get("/admin/reports");
    for (const auto& report : reports.as_array()) {
      if (report.at("jobId") == jobId.c_str()) return report.as_object();
    }
    ADD_FAILURE() << "no report for " << jobId;
    return {};
  }

  std::vector<std::string> ingestedBodies() {
    std::vector<std::string> bodies;
    const auto ingested = admin_.get("/admin/ingested");
    for (const auto& body : ingested.as_array()) bodies.emplace_back(body.at("body").as_string());
    return bodies;
  }

  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::HostHome home_;
};

TEST_F(RelayAgainstDevBrain, AConfirmedSendIsReportedOkAndNotCapturedAsANewMessage) {
  const auto job = queue({{"channelKind", "sms"},
                          {"conversationRef", "+15550001"},
                          {"body", "On my way — \"10 min\"\nsee you"},
                          {"attachments", json::array{json::object{{"filename", "../map.png"},
                                                                   {"mimeType", "image/png"},
                                                                   {"dataBase64", base64Encode("PNG")}}}}});
  const auto [code, log] = runOnce("sent");
  ASSERT_EQ(code, 0) << log;
  const auto report = reportOf(job);
  EXPECT_EQ(report.at("ok"), true) << log;
  EXPECT_THAT(std::string(report.at("providerMessageId").as_string()), ::testing::MatchesRegex("standin-[0-9]+-2"))
      << "the text's row, the second written";
  EXPECT_THAT(log, HasSubstr("quarl: relay: sending 1 file(s) with job " + job));
  EXPECT_THAT(log, HasSubstr("relay job " + job + " on sms goes out as iMessage — their newest message came over iMessage"));
  EXPECT_THAT(log, HasSubstr("quarl: relay: job " + job + " sent"));
  EXPECT_THAT(log, HasSubstr("quarl: relay: removed 1 staged outgoing file(s)"));
  EXPECT_THAT(log, HasSubstr("quarl: capture recognised its own send in <private>"));

  const auto sent = testing::fileContents(standInLog());
  EXPECT_THAT(sent, HasSubstr("file\t+15550001\tiMessage\t"));
  EXPECT_THAT(sent, HasSubstr("-map.png\n")) << "the file keeps its name but not its folder part";
  EXPECT_THAT(sent, HasSubstr("text\t+15550001\tiMessage\tOn my way — \"10 min\"\rsee you\n"))
      << "Messages stores the line break as AppleScript's return";
  EXPECT_TRUE(fs::is_empty(temporary())) << "staged files and snapshots are removed";

  // A restart reads the newest rows again; the relayed ones stay the Mac's own.
  const auto again = runOnce("sent");
  EXPECT_THAT(ingestedBodies(), ::testing::ElementsAre("are you coming?")) << again.log;
  EXPECT_EQ(admin_.get("/admin/stats").at("duplicateIngests"), 0);
}

TEST_F(RelayAgainstDevBrain, RefusalsAndFailuresAreReportedInTheirOwnSentences) {
  const auto refused = queue({{"channelKind", "imessage"}, {"conversationRef", "+15550001"}, {"body", "hello"}});
  const auto [code, log] = runOnce("error:22");
  ASSERT_EQ(code, 0) << log;
  EXPECT_EQ(reportOf(refused).at("failureReason"),
            "Messages did not deliver this — it did not go, and it is marked Not Delivered there (error 22). Quarl did "
            "not send it, whatever the card said before.");
  EXPECT_THAT(log, HasSubstr("quarl: relay: job " + refused + " was REFUSED by Messages — 1 of 1 part(s), error 22"));

  const auto secondFile = queue({{"channelKind", "imessage"},
                                 {"conversationRef", "+15550001"},
                                 {"body", "two files"},
                                 {"attachments", json::array{json::object{{"filename", "a.txt"},
                                                                          {"mimeType", "text/plain"},
                                                                          {"dataBase64", base64Encode("A")}},
                                                             json::object{{"filename", "b.txt"},
                                                                          {"mimeType", "text/plain"},
                                                                          {"dataBase64", base64Encode("B")}}}}});
  const auto whatsapp = queue({{"channelKind", "whatsapp"}, {"conversationRef", "4477"}, {"body", "hi"}});
  fs::remove(standInLog());
  const auto [failedCode, failedLog] = runOnce("sent", "3");  // the store's third script: file 2 of this job
  ASSERT_EQ(failedCode, 0) << failedLog;
  EXPECT_THAT(std::string(reportOf(secondFile).at("failureReason").as_string()),
              ::testing::StartsWith("file 2 of 2 did not go, so the message was not sent either: Messages could not "
                                    "send that: execution error: Messages got an error"));
  EXPECT_THAT(testing::fileContents(standInLog()), ::testing::Not(HasSubstr("two files"))) << "no text after a failed file";
  EXPECT_EQ(reportOf(whatsapp).at("failureReason"), "This Mac does not send WhatsApp messages yet, so nothing was sent.");

  const auto unauthorised = queue({{"channelKind", "imessage"}, {"conversationRef", "+15550001"}, {"body", "x"}});
  const auto noMessages = queue({{"channelKind", "imessage"}, {"conversationRef", "+15550001"}, {"body", "y"}});
  runOnce("unauthorised");
  EXPECT_EQ(reportOf(unauthorised).at("failureReason"),
            "macOS has not allowed Quarl to control Messages. Turn Quarl on in System Settings → Privacy & Security → "
            "Automation → Messages.");
  EXPECT_EQ(reportOf(noMessages).at("failureReason"), reportOf(unauthorised).at("failureReason"));

  const auto nowhere = queue({{"channelKind", "imessage"}, {"conversationRef", "+15550001"}, {"body", "z"}});
  runOnce("sent", "", "/nonexistent/osascript");
  EXPECT_EQ(reportOf(nowhere).at("failureReason"), "This computer has no Messages app, so nothing was sent.");
}

}  // namespace
}  // namespace quarl

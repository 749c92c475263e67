#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/process/args.hpp>
#include <boost/process/child.hpp>
#include <boost/process/io.hpp>
#include <gmock/gmock.h>
#include <csignal>
#include <fstream>
#include <map>

#include "Base64.h"
#include "DevBrainAdmin.h"
#include "FileContents.h"
#include "HostHome.h"
#include "MessagesStore.h"
#include "Sha256.h"
#include "TerminalQrReading.h"

namespace quarl {
namespace {

namespace bp = boost::process;
namespace json = boost::json;
using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::HasSubstr;

// What a terminal running `quarl-companion whatsapp-link` reads, line by line as the host says it.
class LinkingTerminal {
 public:
  explicit LinkingTerminal(const bp::environment& environment)
      : process_(QUARL_COMPANION_PATH, bp::args({"whatsapp-link"}), environment, bp::std_out > output_,
                 bp::std_err > bp::null) {}

  // The next QR code drawn, with the lines that follow it up to the picture's path.
  std::string nextCode() {
    std::string drawn, line;
    while (std::getline(output_, line) && !line.starts_with("Scan this with WhatsApp")) said_.push_back(line);
    while (std::getline(output_, line) && !line.starts_with("A picture of the page is at")) drawn += line + "\n";
    said_.push_back(line);
    return drawn;
  }
  // Everything said until the terminal's command ends, and how it ended.
  int finish() {
    std::string line;
    while (std::getline(output_, line)) said_.push_back(line);
    process_.wait();
    return process_.exit_code();
  }
  const std::vector<std::string>& said() const { return said_; }

 private:
  bp::ipstream output_;
  bp::child process_;
  std::vector<std::string> said_;
};

json::object chatWith(const std::string& id, const std::string& title, json::array messages) {
  return json::object{{"id", id}, {"title", title}, {"messages", std::move(messages)}};
}

json::object said(const std::string& id, std::int64_t t, const std::string& body, bool fromMe = false) {
  return json::object{{"id", id}, {"t", t}, {"body", body}, {"fromMe", fromMe}};
}

// quarl-companion as a real process, signed in to devbrain with WhatsApp switched on and pointed
// at devbrain's stand-in, starting its own display. Its Messages store is readable, since a Mac
// that cannot read Messages offers no channel at all.
class WhatsAppHostAgainstDevBrain : public ::testing::Test {
 protected:
  WhatsAppHostAgainstDevBrain() : admin_(brain_), home_(brain_) {
    admin_.post("/admin/settings", {{"connectedChannels", json::array{"imessage", "sms", "whatsapp"}}});
    admin_.post("/admin/whatsapp/screen", {{"screen", "link"}});
    home_.signIn(admin_, {{"QuarlWhatsappEnabled", true}, {"QuarlWhatsappWebURL", brain_.baseURL() + "/whatsapp/"}});
    testing::MessagesStore store(home_.store());
    environment_ = home_.environment();
    environment_.erase("DISPLAY");
    environment_.erase("XAUTHORITY");
    environment_["XDG_DATA_HOME"] = (home_.path() / ".local" / "share").string();
  }

  std::string currentRef() { return std::string(admin_.get("/admin/whatsapp").at("ref").as_string()); }
  std::size_t heartbeats() { return admin_.requestsTo("/v1/relay/heartbeat"); }
  // The channels of the `later`th heartbeat after the `seen`th; the host beats every 30 s.
  json::value channelsAfter(std::size_t seen, std::size_t later = 1) {
    EXPECT_TRUE(testing::eventually([&] { return heartbeats() >= seen + later; }, later * 40s)) << testing::fileContents(log_);
    return admin_.lastBodyTo("/v1/relay/heartbeat").at("channels");
  }
  // The channels offered once the host has read the page as it is now: a tick offers what the
  // page showed at the end of the tick before.
  json::value channelsOnceRead() { return channelsAfter(heartbeats(), 2); }
  // A Mac that already hosts a linked session, on a stand-in page showing `chats`.
  void hostLinkedSession(json::array chats) {
    auto defaults = json::parse(testing::fileContents(home_.config() / "defaults.json")).as_object();
    defaults["QuarlWhatsappHostsSession"] = true;
    std::ofstream(home_.config() / "defaults.json") << json::serialize(defaults);
    admin_.post("/admin/whatsapp/chats", {{"replace", true}, {"chats", std::move(chats)}});
    admin_.post("/admin/whatsapp/screen", {{"screen", "linked"}});
  }

  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::HostHome home_;
  bp::environment environment_;
  std::filesystem::path log_ = home_.path() / "host.log";
};

TEST_F(WhatsAppHostAgainstDevBrain, ATerminalLinksThroughTheRunningHostWhichThenOffersWhatsAppWhileTheLinkHolds) {
  auto host = home_.start(environment_, log_);
  ASSERT_TRUE(testing::eventually([&] { return std::filesystem::exists(home_.config() / "control.sock"); }))
      << testing::fileContents(log_);

  LinkingTerminal terminal(environment_);
  EXPECT_EQ(testing::decodedTerminalQr(terminal.nextCode(), home_.path()), currentRef());
  admin_.post("/admin/whatsapp/rotate");
  EXPECT_EQ(testing::decodedTerminalQr(terminal.nextCode(), home_.path()), currentRef()) << "redrawn once rotated";
  admin_.post("/admin/whatsapp/link");
  EXPECT_EQ(terminal.finish(), 0) << testing::fileContents(log_);
  EXPECT_EQ(terminal.said().back(), "WhatsApp is linked");
  EXPECT_THAT(terminal.said(), Contains("A picture of the page is at " + (home_.config() / "whatsapp-link.png").string()));

  // The next heartbeat offers the page the linking read; a page still loading keeps it offered;
  // the QR code back on screen means the phone unlinked it.
  EXPECT_THAT(channelsAfter(heartbeats()).as_array(), Contains("whatsapp"));
  admin_.post("/admin/whatsapp/screen", {{"screen", "loading"}});
  EXPECT_THAT(channelsOnceRead().as_array(), Contains("whatsapp"));
  admin_.post("/admin/whatsapp/screen", {{"screen", "link"}});
  EXPECT_EQ(channelsOnceRead(), (json::array{"imessage", "sms"}));

  ::kill(host.id(), SIGTERM);
  host.wait();
  EXPECT_EQ(host.exit_code(), 0);
  const auto log = testing::fileContents(log_);
  EXPECT_THAT(log, HasSubstr("advertising it anyway"));
  EXPECT_THAT(log, HasSubstr("WhatsApp is not being offered by this Mac: WhatsApp Web is showing its QR code"));
}

TEST_F(WhatsAppHostAgainstDevBrain, MessagesArrivingWhileTheHostRunsReachTheServiceOnceEachAcrossARestart) {
  // A Mac that already hosts a linked session, on a page showing two chats.
  hostLinkedSession(json::array{chatWith("447700900123@c.us", "Ada", json::array{said("3EB0A1", 1795000000, "hello")}),
                                chatWith("120363025@g.us", "Climbing", json::array{said("3EB0B1", 1795000100, "rope?", true)})});
  const auto whatsappIngests = [&] {
    std::map<std::string, json::object> byId;
    const auto all = admin_.get("/admin/ingested");
    for (const auto& each : all.as_array()) {
      if (each.at("channelId") == "ch-whatsapp") byId[std::string(each.at("externalMessageId").as_string())] = each.as_object();
    }
    return byId;
  };
  const auto reached = [&](std::size_t count) {
    return testing::eventually([&] { return whatsappIngests().size() >= count; }, 100s);
  };

  auto host = home_.start(environment_, log_);
  ASSERT_TRUE(reached(2)) << testing::fileContents(log_);
  admin_.post("/admin/whatsapp/messages", {{"chat", "447700900123@c.us"}, {"messages", json::array{said("3EB0A2", 1795000200, "are you there?")}}});
  ASSERT_TRUE(reached(3)) << testing::fileContents(log_);
  EXPECT_THAT(testing::fileContents(log_), HasSubstr("quarl: whatsapp: every conversation has been read once"));
  ::kill(host.id(), SIGTERM);
  host.wait();

  auto again = home_.start(environment_, log_);
  admin_.post("/admin/whatsapp/messages", {{"chat", "120363025@g.us"}, {"messages", json::array{said("3EB0B2", 1795000300, "I have it")}}});
  ASSERT_TRUE(reached(4)) << testing::fileContents(log_);
  const auto passes = admin_.requestsTo("/v1/relay/heartbeat");
  ASSERT_TRUE(testing::eventually([&] { return admin_.requestsTo("/v1/relay/heartbeat") >= passes + 1; }, 40s));
  ::kill(again.id(), SIGTERM);
  again.wait();

  EXPECT_EQ(admin_.get("/admin/stats").at("duplicateIngests"), 0) << "nothing handed over twice, restart or not";
  const auto ingested = whatsappIngests();
  ASSERT_EQ(ingested.size(), 4u);
  const auto& hello = ingested.at("3EB0A1");
  EXPECT_EQ(hello.at("externalThreadId"), "447700900123@c.us");
  EXPECT_EQ(hello.at("direction"), "inbound");
  EXPECT_EQ(hello.at("body"), "hello");
  EXPECT_EQ(hello.at("threadKind"), "direct");
  EXPECT_EQ(hello.at("senderIdentifier"), "+447700900123");
  EXPECT_THAT(std::string(hello.at("sentAt").as_string()), HasSubstr("2026-11-18T"));
  const auto& rope = ingested.at("3EB0B1");
  EXPECT_EQ(rope.at("direction"), "outbound");
  EXPECT_EQ(rope.at("threadKind"), "group");
  EXPECT_EQ(rope.at("threadTitle"), "Climbing");
  EXPECT_EQ(ingested.at("3EB0B2").at("body"), "I have it");
}

json::object whatsappJob(const std::string& to, const std::string& body, const json::array& files = {}) {
  json::object job{{"channelKind", "whatsapp"}, {"conversationRef", to}, {"body", body}};
  if (!files.empty()) job["attachments"] = files;
  return job;
}

TEST_F(WhatsAppHostAgainstDevBrain, RelayJobsGoIntoTheRightChatAndOnlyJobsReportedSentWentAtAll) {
  hostLinkedSession(json::array{chatWith("447700900123@c.us", "Ada", json::array{said("3EB0A1", 1795000000, "hello")}),
                                chatWith("447700900124@c.us", "Grace", json::array{said("3EB0G1", 1795000100, "hi")})});

  std::string picture;
  for (int i = 0; i < 40000; ++i) picture.push_back(static_cast<char>(i * 7 % 256));
  const std::string tooBig(17 << 20, 'v');
  const auto queue = [&](const json::object& job) { return std::string(admin_.post("/admin/jobs", job).at("id").as_string()); };
  const auto text = queue(whatsappJob("447700900123@c.us", "See you at 7"));
  const auto withPicture = queue(whatsappJob(
      "447700900124@c.us", "the map",
      json::array{json::object{{"filename", "map.png"}, {"mimeType", "image/png"}, {"dataBase64", base64Encode(picture)}}}));
  const auto oversized = queue(whatsappJob(
      "447700900123@c.us", "the video is too big for WhatsApp",
      json::array{json::object{{"filename", "trip.mp4"}, {"mimeType", "video/mp4"}, {"dataBase64", base64Encode(tooBig)}}}));
  const auto nowhere = queue(whatsappJob("120363999@g.us", "to a group nobody has"));

  auto host = home_.start(environment_, log_);
  const auto reports = [&] { return admin_.get("/admin/reports").as_array().size(); };
  ASSERT_TRUE(testing::eventually([&] { return reports() >= 4; }, 180s)) << testing::fileContents(log_);
  ::kill(host.id(), SIGTERM);
  host.wait();

  std::map<std::string, json::object> reported;
  const auto all = admin_.get("/admin/reports");
  for (const auto& each : all.as_array()) reported[std::string(each.at("jobId").as_string())] = each.as_object();
  const auto standIn = admin_.get("/admin/whatsapp");
  const auto& sent = standIn.at("sent").as_array();
  ASSERT_EQ(sent.size(), 4u) << sent << testing::fileContents(log_);
  EXPECT_EQ(reported.at(text).at("ok"), true);
  EXPECT_EQ(sent[0], (json::object{{"chat", "447700900123@c.us"}, {"text", "See you at 7"}}));
  EXPECT_EQ(reported.at(withPicture).at("ok"), true);
  EXPECT_EQ(sent[1].at("chat"), "447700900124@c.us");
  EXPECT_EQ(sent[1].at("sha256"), json::value(sha256Hex(picture)));
  EXPECT_EQ(sent[2], (json::object{{"chat", "447700900124@c.us"}, {"text", "the map"}}));
  // The words went without the file, and the owner is told why.
  EXPECT_EQ(reported.at(oversized).at("ok"), true);
  EXPECT_THAT(std::string(reported.at(oversized).at("failureReason").as_string()),
              HasSubstr("Quarl cannot put a 17 MB video/mp4 into WhatsApp from this Mac"));
  EXPECT_EQ(sent[3], (json::object{{"chat", "447700900123@c.us"}, {"text", "the video is too big for WhatsApp"}}));
  EXPECT_EQ(reported.at(nowhere).at("ok"), false);
  EXPECT_THAT(std::string(reported.at(nowhere).at("failureReason").as_string()),
              HasSubstr("That WhatsApp conversation is not in the chat list on this Mac, so Quarl sent nothing."));
}

}  // namespace
}  // namespace quarl

#include <sys/stat.h>

#include <boost/json/parse.hpp>
#include <boost/process/child.hpp>
#include <boost/process/env.hpp>
#include <boost/process/io.hpp>
#include <chrono>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>

#include "../support/DevBrainAdmin.h"
#include "../support/HostHome.h"
#include "../support/FileContents.h"
#include "../support/MessagesStore.h"
#include "../support/TemporaryDirectory.h"

namespace quarl {
namespace {

namespace bp = boost::process;
namespace fs = std::filesystem;
namespace json = boost::json;
using ::testing::HasSubstr;

// quarl-companion as a real process in a temporary HOME, pointed at a real devbrain.
class HostAgainstDevBrain : public ::testing::Test {
 protected:
  HostAgainstDevBrain() : admin_(brain_), home_(brain_), config_(home_.config()) {
    admin_.post("/admin/settings", {{"pairingIntervalSeconds", 0}});
  }

  bp::child startHost(bp::ipstream& errors) {
    return bp::child(QUARL_COMPANION_PATH, "--once", home_.environment(), bp::std_out > bp::null, bp::std_err > errors);
  }

  // Waits until the host has polled its pending pairing, so that the decision comes after.
  void awaitPendingPoll() {
    for (int i = 0; i < 500; ++i) {
      if (admin_.requestsTo("/v1/devices/pair/poll") > pollsBefore_) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    FAIL() << "the host never polled its pairing";
  }

  // Runs the host once with the pairing decided by `decide`; its exit code and standard error.
  std::pair<int, std::string> runOnce(const std::function<void()>& decide = [] {}) {
    pollsBefore_ = admin_.requestsTo("/v1/devices/pair/poll");
    bp::ipstream errors;
    auto host = startHost(errors);
    decide();
    host.wait();
    std::string all, line;
    while (std::getline(errors, line)) all += line + "\n";
    return {host.exit_code(), all};
  }


  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::HostHome home_;
  fs::path config_;
  int pollsBefore_ = 0;
};

TEST_F(HostAgainstDevBrain, AnUnpairedHostPairsStoresItsSessionAndSendsItsFirstHeartbeat) {
  const auto [code, log] = runOnce([&] {
    awaitPendingPoll();
    admin_.post("/admin/pairings/approve");
  });
  ASSERT_EQ(code, 0) << log;
  EXPECT_THAT(log, HasSubstr("quarl: heartbeat ok, advertising nothing"));

  const auto keychain = json::parse(testing::fileContents(config_ / "keychain.json")).as_object();
  EXPECT_TRUE(keychain.contains("accessToken"));
  EXPECT_TRUE(keychain.contains("refreshToken"));
  struct stat info {};
  ASSERT_EQ(::stat((config_ / "keychain.json").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  const auto defaults = json::parse(testing::fileContents(config_ / "defaults.json")).as_object();
  EXPECT_TRUE(defaults.at("QuarlDeviceId").is_string());
  EXPECT_TRUE(defaults.at("QuarlInstallId").is_string());

  // Without Messages the heartbeat offers nothing and says why.
  const auto heartbeat = admin_.lastBodyTo("/v1/relay/heartbeat");
  EXPECT_EQ(heartbeat.at("channels"), json::array{});
  EXPECT_THAT(std::string(heartbeat.at("blockedReason").as_string()), HasSubstr("Full Disk Access"));
  EXPECT_EQ(heartbeat.at("device").at("installId"), defaults.at("QuarlInstallId"));

  // A second start is already paired.
  const auto [again, secondLog] = runOnce();
  EXPECT_EQ(again, 0) << secondLog;
  EXPECT_EQ(admin_.requestsTo("/v1/devices/pair/start"), 1);
  EXPECT_EQ(admin_.requestsTo("/v1/relay/heartbeat"), 2);
}

TEST_F(HostAgainstDevBrain, PairingsThatEndWithoutASessionStoreNothing) {
  const auto [refusedCode, refused] = runOnce([&] {
    awaitPendingPoll();
    admin_.post("/admin/pairings/refuse");
  });
  EXPECT_EQ(refusedCode, 1);
  EXPECT_THAT(refused, HasSubstr("That request was refused on the web. Nothing was connected."));

  const auto [sessionlessCode, sessionless] = runOnce([&] {
    awaitPendingPoll();
    admin_.post("/admin/pairings/approve", {{"withoutRefreshToken", true}});
  });
  EXPECT_EQ(sessionlessCode, 1);
  EXPECT_THAT(sessionless, HasSubstr("Quarl approved this device but sent no session."));

  admin_.post("/admin/settings", {{"pairingExpiresInSeconds", 0}});
  const auto [expiredCode, expired] = runOnce();
  EXPECT_EQ(expiredCode, 1);
  EXPECT_THAT(expired, HasSubstr("That code expired before it was approved. Try again."));

  EXPECT_FALSE(fs::exists(config_ / "keychain.json"));
  EXPECT_FALSE(json::parse(testing::fileContents(config_ / "defaults.json")).as_object().contains("QuarlDeviceId"));
  EXPECT_EQ(admin_.requestsTo("/v1/relay/heartbeat"), 0);
}

TEST_F(HostAgainstDevBrain, AMessagesStoreInItsPlaceIsReadAndItsChannelsOffered) {
  const auto messages = home_.messages();
  {
    testing::MessagesStore store(messages / "chat.db");
    store.message({.guid = "m1", .chat = store.chat("+1555", "iMessage"), .text = "hi", .date = 1});
  }
  const auto [code, log] = runOnce([&] {
    awaitPendingPoll();
    admin_.post("/admin/pairings/approve");
  });
  ASSERT_EQ(code, 0) << log;
  auto heartbeat = admin_.lastBodyTo("/v1/relay/heartbeat");
  EXPECT_THAT(json::serialize(heartbeat.at("channels")), HasSubstr("imessage"));
  EXPECT_THAT(json::serialize(heartbeat.at("channels")), HasSubstr("sms"));
  EXPECT_TRUE(heartbeat.at("blockedReason").is_null());

  for (const char* name : {"chat.db", "chat.db-wal", "chat.db-shm"}) fs::remove(messages / name);
  {
    testing::MessagesStore store(messages / "chat.db");
    store.exec("alter table message drop column attributedBody;");
  }
  const auto [again, secondLog] = runOnce();
  ASSERT_EQ(again, 0) << secondLog;
  heartbeat = admin_.lastBodyTo("/v1/relay/heartbeat");
  EXPECT_EQ(heartbeat.at("channels"), json::array{});
  EXPECT_EQ(heartbeat.at("blockedReason"),
            "The Messages database is not the shape Quarl knows how to read: `message` has no attributedBody");
}

}  // namespace
}  // namespace quarl

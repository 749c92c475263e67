#include <boost/json/parse.hpp>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>
#include <tuple>

#include "../support/DevBrainAdmin.h"
#include "../support/FileContents.h"
#include "../support/HostHome.h"
#include "../support/MessagesStore.h"

namespace quarl {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
using ::testing::HasSubstr;

// quarl-companion as a real process in a temporary HOME, pointed at a real devbrain.
class HostAgainstDevBrain : public ::testing::Test {
 protected:
  HostAgainstDevBrain() : admin_(brain_), home_(brain_) { admin_.post("/admin/settings", {{"pairingIntervalSeconds", 0}}); }

  // Runs the host once. With a `decision`, devbrain is told it once the host has polled its
  // pending pairing, so that it comes after.
  testing::HostHome::Run runOnce(const std::string& decision = "", const json::object& body = {}) {
    const auto pollsBefore = admin_.requestsTo("/v1/devices/pair/poll");
    std::jthread decide;
    if (!decision.empty()) {
      decide = std::jthread([&] {
        try {
          for (int i = 0; i < 500 && admin_.requestsTo("/v1/devices/pair/poll") == pollsBefore; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
          }
          admin_.post(decision, body);
        } catch (const std::exception& error) {
          ADD_FAILURE() << decision << ": " << error.what();
        }
      });
    }
    return home_.runOnce();
  }
  json::object defaults() { return json::parse(testing::fileContents(home_.config() / "defaults.json")).as_object(); }

  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::HostHome home_;
};

TEST_F(HostAgainstDevBrain, AnUnpairedHostPairsStoresItsSessionAndItsHeartbeatSaysWhyItOffersNothing) {
  const auto paired = runOnce("/admin/pairings/approve");
  ASSERT_EQ(paired.code, 0) << paired.log;
  const auto keychain = json::parse(testing::fileContents(home_.config() / "keychain.json")).as_object();
  EXPECT_TRUE(keychain.contains("accessToken") && keychain.contains("refreshToken"));
  const auto stored = defaults();
  EXPECT_TRUE(stored.at("QuarlDeviceId").is_string());

  // Without Messages the heartbeat offers nothing and says why.
  auto heartbeat = admin_.lastBodyTo("/v1/relay/heartbeat");
  EXPECT_EQ(heartbeat.at("channels"), json::array{});
  EXPECT_THAT(std::string(heartbeat.at("blockedReason").as_string()), HasSubstr("Full Disk Access"));
  EXPECT_EQ(heartbeat.at("device").at("installId"), stored.at("QuarlInstallId"));

  // A second start is already paired, and names what is wrong with a store it cannot read.
  testing::MessagesStore(home_.store()).exec("alter table message drop column attributedBody;");
  const auto again = runOnce();
  ASSERT_EQ(again.code, 0) << again.log;
  EXPECT_EQ(admin_.requestsTo("/v1/devices/pair/start"), 1);
  EXPECT_EQ(admin_.requestsTo("/v1/relay/heartbeat"), 2);
  heartbeat = admin_.lastBodyTo("/v1/relay/heartbeat");
  EXPECT_EQ(heartbeat.at("channels"), json::array{});
  EXPECT_EQ(heartbeat.at("blockedReason"),
            "The Messages database is not the shape Quarl knows how to read: `message` has no attributedBody");
}

TEST_F(HostAgainstDevBrain, PairingsThatEndWithoutASessionStoreNothing) {
  // Without a decision the code runs out.
  for (const auto& [decision, body, sentence] : std::vector<std::tuple<std::string, json::object, std::string>>{
           {"/admin/pairings/refuse", {}, "That request was refused on the web. Nothing was connected."},
           {"/admin/pairings/approve", {{"withoutRefreshToken", true}}, "Quarl approved this device but sent no session."},
           {"", {}, "That code expired before it was approved. Try again."}}) {
    if (decision.empty()) admin_.post("/admin/settings", {{"pairingExpiresInSeconds", 0}});
    const auto run = runOnce(decision, body);
    EXPECT_EQ(run.code, 1) << run.log;
    EXPECT_THAT(run.log, HasSubstr(sentence));
  }
  EXPECT_FALSE(fs::exists(home_.config() / "keychain.json"));
  EXPECT_FALSE(defaults().contains("QuarlDeviceId"));
  EXPECT_EQ(admin_.requestsTo("/v1/relay/heartbeat"), 0);
}

}  // namespace
}  // namespace quarl

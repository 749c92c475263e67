#include <boost/json/parse.hpp>
#include <gmock/gmock.h>

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
  json::object defaults() { return json::parse(testing::fileContents(home_.config() / "defaults.json")).as_object(); }

  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::HostHome home_;
};

TEST_F(HostAgainstDevBrain, AnUnpairedHostPairsStoresItsSessionAndItsHeartbeatSaysWhyItOffersNothing) {
  admin_.post("/admin/settings", {{"autoApprove", true}});
  const auto paired = home_.runOnce();
  ASSERT_EQ(paired.code, 0) << paired.log;
  auto heartbeat = admin_.lastBodyTo("/v1/relay/heartbeat");
  EXPECT_EQ(heartbeat.at("channels"), json::array{});
  EXPECT_THAT(std::string(heartbeat.at("blockedReason").as_string()), HasSubstr("Full Disk Access"));
  EXPECT_EQ(heartbeat.at("device").at("installId"), defaults().at("QuarlInstallId"));

  // A second start finds the stored session and does not pair again; it names what is wrong with its store.
  testing::MessagesStore(home_.store()).exec("alter table message drop column attributedBody;");
  const auto again = home_.runOnce();
  ASSERT_EQ(again.code, 0) << again.log;
  EXPECT_EQ(admin_.requestsTo("/v1/devices/pair/start"), 1);
  heartbeat = admin_.lastBodyTo("/v1/relay/heartbeat");
  EXPECT_EQ(heartbeat.at("channels"), json::array{});
  EXPECT_EQ(heartbeat.at("blockedReason"),
            "The Messages database is not the shape Quarl knows how to read: `message` has no attributedBody");
}

// devbrain answers the first poll pending, the next as the row says; with no answer the code runs out unpolled.
TEST_F(HostAgainstDevBrain, PairingsThatEndWithoutASessionStoreNothing) {
  for (const auto& [answer, sentence] : std::vector<std::pair<std::string, std::string>>{
           {R"({"status":"denied"})", "That request was refused on the web. Nothing was connected."},
           {R"({"status":"approved","accessToken":"a","deviceId":"d","userId":"u"})",
            "Quarl approved this device but sent no session."},
           {"", "That code expired before it was approved. Try again."}}) {
    if (answer.empty()) admin_.post("/admin/settings", {{"pairingExpiresInSeconds", 0}});
    admin_.post("/admin/faults", {{"path", "/v1/devices/pair/poll"}, {"status", 200}, {"body", answer}, {"skip", 1}});
    const auto run = home_.runOnce();
    EXPECT_EQ(run.code, 1) << run.log;
    EXPECT_THAT(run.log, HasSubstr(sentence));
  }
  EXPECT_FALSE(fs::exists(home_.config() / "keychain.json"));
  EXPECT_FALSE(defaults().contains("QuarlDeviceId"));
  EXPECT_EQ(admin_.requestsTo("/v1/relay/heartbeat"), 0);
}

}  // namespace
}  // namespace quarl

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include "../support/DevBrainAdmin.h"
#include "PairingClient.h"

namespace quarl {
namespace {

namespace json = boost::json;
using Status = PairingClient::Poll::Status;

class PairingAgainstDevBrain : public ::testing::Test {
 protected:
  PairingAgainstDevBrain()
      : admin_(brain_),
        pairing_(brain_.baseURL(), {"linux", 7, "0.1.0", "test host", "Linux 6"},
                 std::make_shared<BeastHttpTransport>(io_.get_executor())) {}

  PairingClient::Started start() {
    auto started = testing::runAwaitable(io_, pairing_.start(json::object{{"installId", "install-1"}}));
    if (!started) throw std::runtime_error(started.error().description());
    return *started;
  }
  PairingClient::Result<PairingClient::Poll> poll(const PairingClient::Started& started) {
    return testing::runAwaitable(io_, pairing_.poll(started.deviceCode));
  }

  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  boost::asio::io_context io_;
  PairingClient pairing_;
};

// devbrain refuses a pairing call that carries authorization: every call here is also unsigned.
TEST_F(PairingAgainstDevBrain, APairingIsPendingUntilAnsweredAndEveryOtherOutcomeIsASentence) {
  const auto started = start();
  EXPECT_EQ(started.verificationUrl, brain_.baseURL() + "/pair?code=" + started.userCode);
  EXPECT_GT(started.expiresInSeconds, 0);
  const auto pending = poll(started);
  ASSERT_TRUE(pending) << pending.error().description();
  EXPECT_EQ(pending->status, Status::pending);

  admin_.post("/admin/pairings/approve", {{"userCode", started.userCode}});
  const auto approved = poll(started);
  ASSERT_TRUE(approved) << approved.error().description();
  EXPECT_EQ(approved->status, Status::approved);
  ASSERT_TRUE(approved->credentials);
  EXPECT_FALSE(approved->credentials->accessToken.empty() || approved->credentials->refreshToken.empty() ||
               approved->credentials->deviceId.empty());
  EXPECT_EQ(admin_.lastBodyTo("/v1/devices/pair/start"),
            (json::object{{"installId", "install-1"}, {"deviceName", "test host"}, {"platform", "linux"}}));

  for (const auto& [answer, status] : {std::pair{"refuse", Status::denied}, std::pair{"expire", Status::expired}}) {
    const auto answered = start();
    admin_.post(std::string("/admin/pairings/") + answer, {{"userCode", answered.userCode}});
    const auto polled = poll(answered);
    ASSERT_TRUE(polled) << answer << ": " << polled.error().description();
    EXPECT_EQ(polled->status, status) << answer;
  }
  const auto sessionless = start();
  admin_.post("/admin/pairings/approve", {{"userCode", sessionless.userCode}, {"withoutRefreshToken", true}});
  const auto noSession = poll(sessionless);
  EXPECT_EQ(noSession.error().description(), "Quarl approved this device but sent no session.");

  const std::pair<json::object, std::string> refusals[] = {
      {{{"status", 429}, {"body", R"({"message":"Too many pairings from this Mac. Wait a minute."})"}},
       "Too many pairings from this Mac. Wait a minute."},
      {{{"status", 500}}, "Quarl refused the request (500)"},
      {{{"status", 200}, {"body", R"({"userCode":"X"})"}}, "Quarl did not return a usable pairing."}};
  for (auto [fault, sentence] : refusals) {
    fault["path"] = "/v1/devices/pair/start";
    admin_.post("/admin/faults", fault);
    const auto refused = testing::runAwaitable(io_, pairing_.start({}));
    EXPECT_EQ(refused.error().description(), sentence);
  }
}

}  // namespace
}  // namespace quarl

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include "../support/DevBrainAdmin.h"
#include "PairingClient.h"

namespace quarl {
namespace {

namespace asio = boost::asio;
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
  asio::io_context io_;
  PairingClient pairing_;
};

TEST_F(PairingAgainstDevBrain, APairingIsPendingUntilApprovedAndThenCarriesTheSession) {
  const auto started = start();
  EXPECT_FALSE(started.userCode.empty());
  EXPECT_NE(started.verificationUrl.find(started.userCode), std::string::npos);
  EXPECT_GT(started.expiresInSeconds, 0);

  auto pending = poll(started);
  ASSERT_TRUE(pending) << pending.error().description();
  EXPECT_EQ(pending->status, Status::pending);

  admin_.post("/admin/pairings/approve", {{"userCode", started.userCode}});
  auto approved = poll(started);
  ASSERT_TRUE(approved) << approved.error().description();
  EXPECT_EQ(approved->status, Status::approved);
  ASSERT_TRUE(approved->credentials);
  EXPECT_FALSE(approved->credentials->accessToken.empty());
  EXPECT_FALSE(approved->credentials->refreshToken.empty());
  EXPECT_FALSE(approved->credentials->deviceId.empty());

  const auto requests = admin_.requests();
  const auto startBody = json::parse(requests[0].at("body").as_string());
  EXPECT_EQ(startBody.at("deviceName"), "test host");
  EXPECT_EQ(startBody.at("platform"), "linux");
  EXPECT_EQ(startBody.at("installId"), "install-1");
  for (const auto& request : requests) EXPECT_FALSE(request.at("headers").as_object().contains("authorization"));
}

TEST_F(PairingAgainstDevBrain, RefusedExpiredAndSessionlessApprovalsAreToldApart) {
  const auto refused = start();
  admin_.post("/admin/pairings/refuse", {{"userCode", refused.userCode}});
  EXPECT_EQ(poll(refused)->status, Status::denied);

  const auto expired = start();
  admin_.post("/admin/pairings/expire", {{"userCode", expired.userCode}});
  EXPECT_EQ(poll(expired)->status, Status::expired);

  const auto sessionless = start();
  admin_.post("/admin/pairings/approve", {{"userCode", sessionless.userCode}, {"withoutRefreshToken", true}});
  const auto approved = poll(sessionless);
  ASSERT_FALSE(approved);
  EXPECT_EQ(approved.error().description(), "Quarl approved this device but sent no session.");
}

TEST_F(PairingAgainstDevBrain, RefusalsOfTheStartBecomeSentences) {
  admin_.post("/admin/faults", {{"path", "/v1/devices/pair/start"}, {"status", 429},
                                {"body", R"({"message":"Too many pairings from this Mac. Wait a minute."})"}});
  auto limited = testing::runAwaitable(io_, pairing_.start({}));
  ASSERT_FALSE(limited);
  EXPECT_EQ(limited.error().description(), "Too many pairings from this Mac. Wait a minute.");

  admin_.post("/admin/faults", {{"path", "/v1/devices/pair/start"}, {"status", 500}});
  auto refused = testing::runAwaitable(io_, pairing_.start({}));
  EXPECT_EQ(refused.error().description(), "Quarl refused the request (500)");

  admin_.post("/admin/faults", {{"path", "/v1/devices/pair/start"}, {"status", 200}, {"body", R"({"userCode":"X"})"}});
  auto unusable = testing::runAwaitable(io_, pairing_.start({}));
  EXPECT_EQ(unusable.error().description(), "Quarl did not return a usable pairing.");
}

}  // namespace
}  // namespace quarl

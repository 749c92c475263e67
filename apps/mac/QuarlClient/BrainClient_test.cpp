#include "BrainClient.h"

#include <gtest/gtest.h>

namespace quarl {
namespace {

using Failure = BrainClient::Failure;

TEST(BrainClientFailure, SentencesAndWhetherTheSessionIsGone) {
  EXPECT_EQ(Failure::http(500, "error", "The request was refused.").description(),
            "500 error: The request was refused.");
  EXPECT_EQ(Failure::transport("connection refused").description(), "Could not reach Quarl: connection refused");
  EXPECT_EQ(Failure::decoding("bad key").description(), "Quarl sent something unexpected: bad key");
  EXPECT_EQ(Failure::notSignedIn().description(), "This Mac is not signed in to Quarl.");
  EXPECT_EQ(Failure::unsendable("it held a number JSON cannot carry").description(),
            "This Mac could not put what it had for Quarl into a request, so nothing was sent: it held a number JSON "
            "cannot carry.");

  EXPECT_TRUE(Failure::notSignedIn().isSessionGone());
  EXPECT_TRUE(Failure::http(401, "reuse_detected", "x").isSessionGone());
  EXPECT_TRUE(Failure::http(400, "invalid_token", "x").isSessionGone());
  EXPECT_FALSE(Failure::http(429, "unavailable", "x").isSessionGone());
  EXPECT_FALSE(Failure::http(403, "forbidden", "x").isSessionGone());
  EXPECT_FALSE(Failure::transport("x").isSessionGone());
  EXPECT_FALSE(Failure::decoding("x").isSessionGone());

  for (const int status : {400, 409, 413, 422}) EXPECT_TRUE(Failure::http(status, "bad", "x").refusesThisRecordOnly());
  for (const int status : {401, 403, 404, 408, 429, 500, 503}) {
    EXPECT_FALSE(Failure::http(status, "error", "x").refusesThisRecordOnly()) << status;
  }
  EXPECT_FALSE(Failure::http(422, "channel_disabled", "x").refusesThisRecordOnly());
  EXPECT_FALSE(Failure::http(400, "invalid_token", "x").refusesThisRecordOnly()) << "a renewal refused is no record's fault";
  EXPECT_FALSE(Failure::transport("x").refusesThisRecordOnly());
}

TEST(ServiceURL, OneLeadingSlashIsDroppedAndThePathJoinsTheBase) {
  EXPECT_EQ(serviceURL("https://api.example.com", "/v1/relay/heartbeat"), "https://api.example.com/v1/relay/heartbeat");
  EXPECT_EQ(serviceURL("https://api.example.com", "v1/relay/heartbeat"), "https://api.example.com/v1/relay/heartbeat");
  EXPECT_EQ(serviceURL("https://api.example.com/", "v1/auth/refresh"), "https://api.example.com/v1/auth/refresh");
  EXPECT_EQ(serviceURL("http://127.0.0.1:8080/base", "/v1/x"), "http://127.0.0.1:8080/base/v1/x");
  EXPECT_EQ(serviceURL("https://api.example.com", "/v1/relay/jobs/a b/result"),
            "https://api.example.com/v1/relay/jobs/a%20b/result");
}

}  // namespace
}  // namespace quarl

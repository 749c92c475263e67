#include "Tokens.h"

#include "Base64.h"

#include <gtest/gtest.h>

namespace quarl {
namespace {

using namespace std::chrono_literals;

std::string jwt(const std::string& payload) { return base64UrlEncode(R"({"alg":"HS256"})") + "." + base64UrlEncode(payload) + ".sig"; }

TEST(Tokens, ExpiryIsReadFromThePayloadOrIsAbsent) {
  EXPECT_EQ(accessTokenExpiry(jwt(R"({"exp":1700000000})")), SystemTime(1700000000s));
  // Payload lengths that need one and two "=" of padding.
  EXPECT_EQ(accessTokenExpiry(jwt(R"({"exp":1700000000,"a":1})")), SystemTime(1700000000s));
  EXPECT_EQ(accessTokenExpiry(jwt(R"({"exp":1700000000,"ab":1})")), SystemTime(1700000000s));
  EXPECT_EQ(accessTokenExpiry(jwt(R"({"sub":"mac"})")), std::nullopt);
  EXPECT_EQ(accessTokenExpiry(jwt(R"({"exp":"soon"})")), std::nullopt);
  EXPECT_EQ(accessTokenExpiry(jwt(R"({"exp":1e400})")), std::nullopt);
  EXPECT_EQ(accessTokenExpiry(jwt("not json")), std::nullopt);
  EXPECT_EQ(accessTokenExpiry("two.parts"), std::nullopt);
  EXPECT_EQ(accessTokenExpiry("a.b.c.d"), std::nullopt);
  EXPECT_EQ(accessTokenExpiry("a.!!!.c"), std::nullopt);
  EXPECT_EQ(accessTokenExpiry(""), std::nullopt);
}

TEST(Tokens, ATokenIsUsableOnlyWithMoreThanTheMarginLeft) {
  const SystemTime now(1700000000s);
  EXPECT_FALSE(accessTokenIsUsable(jwt(R"({"exp":1700000060})"), 60s, now));
  EXPECT_TRUE(accessTokenIsUsable(jwt(R"({"exp":1700000061})"), 60s, now));
  EXPECT_FALSE(accessTokenIsUsable(jwt(R"({"exp":1699999000})"), 60s, now));
  EXPECT_FALSE(accessTokenIsUsable(jwt(R"({"sub":"mac"})"), 60s, now));
  EXPECT_FALSE(accessTokenIsUsable("opaque-token", 0s, now));
}

}  // namespace
}  // namespace quarl

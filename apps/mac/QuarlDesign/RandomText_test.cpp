#include "RandomText.h"

#include <gtest/gtest.h>

#include <regex>

namespace quarl {
namespace {

TEST(RandomText, IdentifiersHaveTheirFormAndDoNotRepeat) {
  const std::regex uuid("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  const auto first = randomUuid();
  EXPECT_TRUE(std::regex_match(first, uuid)) << first;
  EXPECT_NE(first, randomUuid());
  const auto hex = randomHex(16);
  EXPECT_TRUE(std::regex_match(hex, std::regex("[0-9a-f]{32}"))) << hex;
  EXPECT_NE(hex, randomHex(16));
}

}  // namespace
}  // namespace quarl

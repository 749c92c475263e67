#include "TypedStreamText.h"

#include <gtest/gtest.h>

#include "MessagesStore.h"

namespace quarl {
namespace {

using namespace std::string_literals;

TEST(TypedStreamText, TakesExactlyTheBytesTheLengthNamesInEveryLengthForm) {
  EXPECT_EQ(plainTextFromTypedStream(testing::typedStreamBody("hi there")), "hi there");

  const std::string medium(300, 'm');
  const auto mediumBody = testing::typedStreamBody(medium);
  ASSERT_NE(mediumBody.find("+\x81\x2C\x01"s), std::string::npos);
  EXPECT_EQ(plainTextFromTypedStream(mediumBody), medium);

  const std::string longText(70000, 'l');
  const auto longBody = testing::typedStreamBody(longText);
  ASSERT_NE(longBody.find("+\x82\x70\x11\x01\x00"s), std::string::npos);
  EXPECT_EQ(plainTextFromTypedStream(longBody), longText);

  // The bytes that end an object can be part of the text itself.
  const std::string withEndBytes = "caf\xC3\xA9 \x86\x84 end"s;
  EXPECT_EQ(plainTextFromTypedStream(testing::typedStreamBody(withEndBytes)), "café \xEF\xBF\xBD\xEF\xBF\xBD end");
  EXPECT_EQ(plainTextFromTypedStream(testing::typedStreamBody("emoji 🎉 ok")), "emoji 🎉 ok");
}

TEST(TypedStreamText, GivesNothingRatherThanReadingPastTheBlob) {
  EXPECT_EQ(plainTextFromTypedStream(""), std::nullopt);
  EXPECT_EQ(plainTextFromTypedStream("streamtyped NSAttributedString +\x05hello"s), std::nullopt);
  EXPECT_EQ(plainTextFromTypedStream("NSString no plus sign"s), std::nullopt);
  EXPECT_EQ(plainTextFromTypedStream("NSString+\x00rest"s), std::nullopt);
  EXPECT_EQ(plainTextFromTypedStream("NSString+\x06hello"s), std::nullopt);
  EXPECT_EQ(plainTextFromTypedStream("NSString+\x81\x05\x00hell"s), std::nullopt);
  EXPECT_EQ(plainTextFromTypedStream("NSString+\x82\xFF\xFF\xFF\xFFhello"s), std::nullopt);
}

}  // namespace
}  // namespace quarl

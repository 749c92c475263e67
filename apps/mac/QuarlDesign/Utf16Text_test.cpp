#include "Utf16Text.h"

#include <gtest/gtest.h>

namespace quarl {
namespace {

TEST(Utf16Text, CountsAndCutsInUtf16UnitsWithoutSplittingASurrogatePair) {
  EXPECT_EQ(utf16Length("abc"), 3u);
  EXPECT_EQ(utf16Length("é"), 1u);        // two UTF-8 bytes, one unit
  EXPECT_EQ(utf16Length("😀"), 2u);       // four UTF-8 bytes, a surrogate pair
  EXPECT_EQ(utf16Prefix("ab😀c", 3), "ab");  // the pair would need units 3 and 4
  EXPECT_EQ(utf16Prefix("ab😀c", 4), "ab😀");
  EXPECT_EQ(utf16Prefix("héllo", 2), "hé");
  EXPECT_EQ(utf16Prefix("short", 200), "short");
  EXPECT_EQ(utf16Prefix("", 5), "");
}

TEST(Utf16Text, BytesThatAreNotUtf8ComeBackAsReplacementCharacters) {
  const std::string broken = std::string("a") + char(0xC3) + "b" + char(0xFF);
  EXPECT_EQ(utf16Length(broken), 4u);
  EXPECT_EQ(utf16Prefix(broken, 10), "a\xEF\xBF\xBD" "b\xEF\xBF\xBD");
  EXPECT_FALSE(isValidUtf8(broken));
  EXPECT_TRUE(isValidUtf8(utf16Prefix(broken, 10)));
  EXPECT_FALSE(isValidUtf8("\xED\xA0\x80"));  // a lone surrogate written as UTF-8
  EXPECT_EQ(repairedUtf8(broken), "a\xEF\xBF\xBD" "b\xEF\xBF\xBD");
  EXPECT_EQ(repairedUtf8("héllo 🎉"), "héllo 🎉");
}

TEST(Utf16Text, GraphemesAreCountedAsPeopleSeeThem) {
  const std::string family = "\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7";
  const std::string decomposed = "e\xCC\x81";  // e + combining acute
  EXPECT_EQ(graphemeCount("abc"), 3u);
  EXPECT_EQ(graphemeCount(family), 1u);
  EXPECT_EQ(graphemeCount(decomposed + "x"), 2u);
  EXPECT_EQ(graphemeCount("🇫🇷🇩🇪"), 2u);
  EXPECT_EQ(graphemeCount(""), 0u);
  EXPECT_EQ(graphemePrefix(family + decomposed + "z", 2), family + decomposed);
  EXPECT_EQ(graphemePrefix("🇫🇷🇩🇪", 1), "🇫🇷");
  EXPECT_EQ(graphemePrefix("abc", 5), "abc");
}

}  // namespace
}  // namespace quarl

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

}  // namespace
}  // namespace quarl

#include "DateText.h"

#include <gtest/gtest.h>

namespace quarl {
namespace {

using namespace std::chrono_literals;

TEST(DateText, Iso8601CarriesMillisecondsInUtc) {
  EXPECT_EQ(iso8601(SystemTime(1700000000s + 250ms)), "2023-11-14T22:13:20.250Z");
  EXPECT_EQ(iso8601(SystemTime(0s)), "1970-01-01T00:00:00.000Z");
}

TEST(DateText, InstantsAreReadWithFractionsAndOffsets) {
  EXPECT_EQ(instantFromIso8601("2023-11-14T22:13:20Z"), SystemTime(1700000000s));
  EXPECT_EQ(instantFromIso8601("2023-11-14T22:13:20.25Z"), SystemTime(1700000000s + 250ms));
  EXPECT_EQ(instantFromIso8601("2023-11-14T23:43:20+01:30"), SystemTime(1700000000s));
  EXPECT_EQ(instantFromIso8601("2023-11-14T20:13:20-02:00"), SystemTime(1700000000s));
  EXPECT_EQ(instantFromIso8601(iso8601(SystemTime(1700000000s + 7ms))), SystemTime(1700000000s + 7ms));
  for (const char* bad : {"", "2023-11-14", "2023-11-14T22:13:20", "2023-02-30T00:00:00Z", "2023-11-14T24:00:00Z",
                          "2023-11-14T22:13:20.Z", "2023-11-14T22:13:20Zjunk", "2023-11-14 22:13:20Z",
                          "2023-11-14T22:13:20+0100"}) {
    EXPECT_EQ(instantFromIso8601(bad), std::nullopt) << bad;
  }
}

TEST(DateText, RelativeDatesUseTheLargestWholeUnit) {
  const SystemTime now(1700000000s);
  EXPECT_EQ(relativeDateText(now - 1s, now), "1 second ago");
  EXPECT_EQ(relativeDateText(now - 59s, now), "59 seconds ago");
  EXPECT_EQ(relativeDateText(now - 60s, now), "1 minute ago");
  EXPECT_EQ(relativeDateText(now - 119s, now), "1 minute ago");
  EXPECT_EQ(relativeDateText(now - 3h, now), "3 hours ago");
  EXPECT_EQ(relativeDateText(now - 24h, now), "1 day ago");
  EXPECT_EQ(relativeDateText(now - 15 * 24h, now), "2 weeks ago");
  EXPECT_EQ(relativeDateText(now - 400 * 24h, now), "1 year ago");
  EXPECT_EQ(relativeDateText(now + 2h, now), "in 2 hours");
  EXPECT_EQ(relativeDateText(now, now), "0 seconds ago");
}

}  // namespace
}  // namespace quarl

#include "JsonObjectFile.h"

#include <sys/stat.h>

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

#include "../../../tests/support/CapturingLogSink.h"
#include "../../../tests/support/FileContents.h"
#include "../../../tests/support/ManualClock.h"
#include "../../../tests/support/TemporaryDirectory.h"
#include "Keychain_linux.h"
#include "SettingsStore_linux.h"

namespace quarl {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

std::vector<fs::path> filesIn(const fs::path& directory) {
  std::vector<fs::path> names;
  for (const auto& entry : fs::directory_iterator(directory)) names.push_back(entry.path().filename());
  return names;
}

TEST(FileSettingsStore, EveryTypeSurvivesARestart) {
  testing::TemporaryDirectory home;
  const testing::ManualClock clock(SystemTime{});
  const auto directory = home.path() / "quarl";
  {
    FileSettingsStore defaults(directory, clock);
    EXPECT_TRUE(defaults.write("QuarlDeviceId", "dev-1"));
    EXPECT_TRUE(defaults.write("QuarlAskedAboutLogin", true));
    EXPECT_TRUE(defaults.write("QuarlWhatsappSweepVersion", 3));
    EXPECT_TRUE(defaults.writeStrings("QuarlWhatsappRowPrints", {"a", "b"}));
    EXPECT_TRUE(defaults.writeData("QuarlFileRefKey", std::string("\x00\xff\x10", 3)));
    EXPECT_TRUE(defaults.write("Gone", "soon"));
    EXPECT_TRUE(defaults.remove("Gone"));
  }
  FileSettingsStore reopened(directory, clock);
  EXPECT_EQ(reopened.string("QuarlDeviceId"), "dev-1");
  EXPECT_EQ(reopened.boolean("QuarlAskedAboutLogin"), true);
  EXPECT_EQ(reopened.integer("QuarlWhatsappSweepVersion"), 3);
  EXPECT_EQ(reopened.strings("QuarlWhatsappRowPrints"), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(reopened.data("QuarlFileRefKey"), std::string("\x00\xff\x10", 3));
  EXPECT_EQ(reopened.string("Gone"), std::nullopt);
  // A value of another type reads as absent rather than as something it is not.
  EXPECT_EQ(reopened.string("QuarlAskedAboutLogin"), std::nullopt);
  EXPECT_EQ(reopened.boolean("QuarlDeviceId"), std::nullopt);
  // Leftover temporary files would mean a write was not atomic.
  EXPECT_THAT(filesIn(directory), ::testing::UnorderedElementsAre("defaults.json", "defaults.json.lock"));

  // Another process's removal is never undone by this one's next write.
  FileSettingsStore other(directory, clock);
  EXPECT_TRUE(reopened.remove("QuarlDeviceId"));
  EXPECT_TRUE(other.write("QuarlAskedAboutLogin", false));
  EXPECT_EQ(FileSettingsStore(directory, clock).string("QuarlDeviceId"), std::nullopt);
  EXPECT_EQ(FileSettingsStore(directory, clock).boolean("QuarlAskedAboutLogin"), false);
}

TEST(FileSettingsStore, ACorruptFileIsSetAsideLoggedAndNeverOverwrittenUnread) {
  testing::TemporaryDirectory home;
  const testing::ManualClock clock(SystemTime(std::chrono::seconds(1700000000)));
  const auto directory = home.path() / "quarl";
  fs::create_directories(directory);
  std::ofstream(directory / "defaults.json") << R"({"QuarlDeviceId": "dev-1", )";
  auto log = testing::CapturingLogSink::installed();

  FileSettingsStore defaults(directory, clock);
  EXPECT_EQ(defaults.string("QuarlDeviceId"), std::nullopt);
  const auto aside = directory / "defaults.json.corrupt-2023-11-14T22-13-20.000Z";
  ASSERT_TRUE(fs::exists(aside));
  EXPECT_EQ(testing::fileContents(aside), R"({"QuarlDeviceId": "dev-1", )");
  ASSERT_EQ(log->lines().size(), 1u);
  EXPECT_THAT(log->lines()[0], HasSubstr("set it aside as"));

  EXPECT_TRUE(defaults.write("QuarlDeviceId", "dev-2"));
  EXPECT_EQ(testing::fileContents(aside), R"({"QuarlDeviceId": "dev-1", )");
  EXPECT_EQ(FileSettingsStore(directory, clock).string("QuarlDeviceId"), "dev-2");

  // Valid JSON that is not an object is no settings file either.
  std::ofstream(directory / "keychain.json") << R"(["accessToken"])";
  FileKeychain keychain(directory, clock);
  EXPECT_EQ(keychain.read("accessToken"), std::nullopt);
  EXPECT_TRUE(fs::exists(directory / "keychain.json.corrupt-2023-11-14T22-13-20.000Z"));
  QuarlLog::install(nullptr);
}

TEST(FileKeychain, ItemsAreKeptReadableByTheOwnerAlone) {
  testing::TemporaryDirectory home;
  const testing::ManualClock clock(SystemTime{});
  const auto directory = home.path() / "quarl";
  FileKeychain keychain(directory, clock);
  EXPECT_EQ(keychain.read("accessToken"), std::nullopt);
  EXPECT_TRUE(keychain.write("accessToken", "a1"));
  EXPECT_TRUE(keychain.write("refreshToken", "r1"));
  EXPECT_TRUE(keychain.write("accessToken", "a2"));

  struct stat info {};
  ASSERT_EQ(::stat((directory / "keychain.json").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);

  FileKeychain reopened(directory, clock);
  EXPECT_EQ(reopened.read("accessToken"), "a2");
  EXPECT_EQ(reopened.read("refreshToken"), "r1");
  EXPECT_TRUE(reopened.remove("accessToken"));
  EXPECT_FALSE(reopened.remove("accessToken"));
  EXPECT_EQ(FileKeychain(directory, clock).read("accessToken"), std::nullopt);

  // Bytes that are not UTF-8 are refused instead of making the whole file unreadable.
  EXPECT_FALSE(reopened.write("refreshToken", "\xff\xfe"));
  EXPECT_EQ(FileKeychain(directory, clock).read("refreshToken"), "r1");
}

}  // namespace
}  // namespace quarl

#include "JsonObjectFile.h"

#include <array>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

class JsonObjectFiles : public ::testing::Test {
 protected:
  ~JsonObjectFiles() override { QuarlLog::install(nullptr); }
  testing::TemporaryDirectory home_;
  const testing::ManualClock clock_{SystemTime(std::chrono::seconds(1700000000))};
  const fs::path directory_ = home_.path() / "quarl";
};

TEST_F(JsonObjectFiles, EverySettingsTypeSurvivesARestartAndAnotherProcesssRemovalIsNotUndone) {
  FileSettingsStore defaults(directory_, clock_);
  EXPECT_THAT((std::array{defaults.write("QuarlDeviceId", "dev-1"), defaults.write("QuarlAskedAboutLogin", true),
                          defaults.write("QuarlWhatsappSweepVersion", 3), defaults.writeStrings("QuarlWhatsappRowPrints", {"a", "b"}),
                          defaults.writeData("QuarlFileRefKey", std::string("\x00\xff\x10", 3)), defaults.write("Gone", "soon"),
                          defaults.remove("Gone")}), ::testing::Each(true));
  FileSettingsStore reopened(directory_, clock_);
  EXPECT_EQ(reopened.string("QuarlDeviceId"), "dev-1");
  EXPECT_EQ(reopened.boolean("QuarlAskedAboutLogin"), true);
  EXPECT_EQ(reopened.integer("QuarlWhatsappSweepVersion"), 3);
  EXPECT_EQ(reopened.strings("QuarlWhatsappRowPrints"), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(reopened.data("QuarlFileRefKey"), std::string("\x00\xff\x10", 3));
  EXPECT_EQ(reopened.string("Gone"), std::nullopt);
  EXPECT_EQ(reopened.string("QuarlAskedAboutLogin"), std::nullopt) << "a value of another type reads as absent";
  EXPECT_EQ(reopened.boolean("QuarlDeviceId"), std::nullopt);
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory_)) names.push_back(entry.path().filename().string());
  EXPECT_THAT(names, ::testing::UnorderedElementsAre("defaults.json", "defaults.json.lock"))
      << "a leftover temporary file means a write was not atomic";

  // `defaults` still holds the device id it loaded; its next write must not put it back.
  EXPECT_TRUE(reopened.remove("QuarlDeviceId"));
  EXPECT_TRUE(defaults.write("QuarlAskedAboutLogin", false));
  EXPECT_EQ(FileSettingsStore(directory_, clock_).string("QuarlDeviceId"), std::nullopt);
  EXPECT_EQ(FileSettingsStore(directory_, clock_).boolean("QuarlAskedAboutLogin"), false);
}

TEST_F(JsonObjectFiles, ACorruptFileIsSetAsideLoggedAndNeverOverwrittenUnread) {
  const std::string corrupt = R"({"QuarlDeviceId": "dev-1", )";
  const auto aside = directory_ / "defaults.json.corrupt-2023-11-14T22-13-20.000Z";
  fs::create_directories(directory_);
  std::ofstream(directory_ / "defaults.json") << corrupt;
  auto log = testing::CapturingLogSink::installed();
  FileSettingsStore defaults(directory_, clock_);
  EXPECT_EQ(defaults.string("QuarlDeviceId"), std::nullopt);
  EXPECT_EQ(testing::fileContents(aside), corrupt);
  EXPECT_THAT(log->lines(), ::testing::ElementsAre(HasSubstr("set it aside as")));
  EXPECT_TRUE(defaults.write("QuarlDeviceId", "dev-2"));
  EXPECT_EQ(testing::fileContents(aside), corrupt);
  EXPECT_EQ(FileSettingsStore(directory_, clock_).string("QuarlDeviceId"), "dev-2");

  // Valid JSON that is not an object is no settings file either.
  std::ofstream(directory_ / "keychain.json") << R"(["accessToken"])";
  EXPECT_EQ(FileKeychain(directory_, clock_).read("accessToken"), std::nullopt);
  EXPECT_EQ(testing::fileContents(directory_ / "keychain.json.corrupt-2023-11-14T22-13-20.000Z"), R"(["accessToken"])");
}

TEST_F(JsonObjectFiles, KeychainItemsAreReadableByTheOwnerAloneAndOnlyUTF8IsStored) {
  FileKeychain keychain(directory_, clock_);
  EXPECT_TRUE(keychain.write("accessToken", "a1") && keychain.write("refreshToken", "r1") && keychain.write("accessToken", "a2"));
  EXPECT_EQ(fs::status(directory_ / "keychain.json").permissions(), fs::perms::owner_read | fs::perms::owner_write);

  FileKeychain reopened(directory_, clock_);
  EXPECT_EQ(reopened.read("accessToken"), "a2");
  EXPECT_EQ(reopened.read("refreshToken"), "r1");
  EXPECT_TRUE(reopened.remove("accessToken"));
  EXPECT_FALSE(reopened.remove("accessToken"));
  EXPECT_EQ(FileKeychain(directory_, clock_).read("accessToken"), std::nullopt);
  // Bytes that are not UTF-8 are refused instead of making the whole file unreadable.
  EXPECT_FALSE(reopened.write("refreshToken", "\xff\xfe"));
  EXPECT_EQ(FileKeychain(directory_, clock_).read("refreshToken"), "r1");
}

}  // namespace
}  // namespace quarl

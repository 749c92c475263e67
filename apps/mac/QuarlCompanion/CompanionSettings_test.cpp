#include "CompanionSettings.h"

#include <gtest/gtest.h>

#include "../tests/support/MemorySettingsStore.h"
#include "SettingsKeys.h"

namespace quarl {
namespace {

TEST(CompanionSettings, AddressOverridesThatAreNotServiceURLsFallBackToTheBuiltInOnes) {
  testing::MemorySettingsStore defaults;
  auto settings = CompanionSettings::load(defaults);
  EXPECT_EQ(settings.baseURL, CompanionSettings::builtInBaseURL);
  EXPECT_EQ(settings.apiURL, CompanionSettings::builtInApiURL);

  for (const char* bad : {"not a url", "api.example.com", "ftp://api.example.com", "https://", "", "http:///path"}) {
    defaults.write(keys::apiURL, bad);
    EXPECT_EQ(CompanionSettings::load(defaults).apiURL, CompanionSettings::builtInApiURL) << bad;
  }
  defaults.write(keys::apiURL, 42);
  EXPECT_EQ(CompanionSettings::load(defaults).apiURL, CompanionSettings::builtInApiURL);

  defaults.write(keys::apiURL, "http://127.0.0.1:8123");
  defaults.write(keys::baseURL, "https://staging.example.com/app");
  settings = CompanionSettings::load(defaults);
  EXPECT_EQ(settings.apiURL, "http://127.0.0.1:8123");
  EXPECT_EQ(settings.baseURL, "https://staging.example.com/app");
}

TEST(CompanionSettings, ChannelIdsAreReadAndCredentialsAreLeftToTheCoordinator) {
  testing::MemorySettingsStore defaults;
  defaults.write(keys::imessageChannelId, "ch-im");
  defaults.write(keys::whatsappChannelId, "ch-wa");
  defaults.write(keys::deviceId, "dev-1");
  const auto settings = CompanionSettings::load(defaults);
  EXPECT_EQ(settings.imessageChannelId, "ch-im");
  EXPECT_EQ(settings.smsChannelId, std::nullopt);
  EXPECT_EQ(settings.whatsappChannelId, "ch-wa");
  EXPECT_EQ(settings.credentials, std::nullopt);
}

}  // namespace
}  // namespace quarl

#include "CompanionSettings.h"

#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>

#include "../tests/support/MemorySettingsStore.h"
#include "SettingsKeys.h"

namespace quarl {
namespace {

TEST(CompanionSettings, ChannelIdsAreReadAndAddressesThatAreNotServiceURLsFallBackToTheBuiltInOnes) {
  testing::MemorySettingsStore defaults;
  defaults.write(keys::imessageChannelId, "ch-im");
  defaults.write(keys::whatsappChannelId, "ch-wa");
  defaults.write(keys::deviceId, "dev-1");
  auto settings = CompanionSettings::load(defaults);
  EXPECT_EQ(settings.imessageChannelId, "ch-im");
  EXPECT_EQ(settings.smsChannelId, std::nullopt);
  EXPECT_EQ(settings.whatsappChannelId, "ch-wa");
  EXPECT_EQ(settings.credentials, std::nullopt) << "credentials are left to the coordinator";
  EXPECT_EQ(settings.baseURL, CompanionSettings::builtInBaseURL);

  for (const auto& bad : std::vector<boost::json::value>{"not a url", "api.example.com", "ftp://api.example.com", "https://",
                                                        "", "http:///path", 42}) {
    defaults.write(keys::apiURL, bad);
    EXPECT_EQ(CompanionSettings::load(defaults).apiURL, CompanionSettings::builtInApiURL) << boost::json::serialize(bad);
  }
  defaults.write(keys::apiURL, "http://127.0.0.1:8123");
  defaults.write(keys::baseURL, "https://staging.example.com/app");
  settings = CompanionSettings::load(defaults);
  EXPECT_EQ(settings.apiURL, "http://127.0.0.1:8123");
  EXPECT_EQ(settings.baseURL, "https://staging.example.com/app");
}

}  // namespace
}  // namespace quarl

#include "CompanionSettings.h"

#include <boost/url/parse.hpp>

#include "SettingsKeys.h"

namespace quarl {
namespace {

bool isServiceURL(std::string_view text) {
  const auto parsed = boost::urls::parse_absolute_uri(text);
  if (!parsed) return false;
  const auto scheme = parsed->scheme();
  return (scheme == "http" || scheme == "https") && !parsed->host().empty();
}

std::string addressOrBuiltIn(const SettingsStore& defaults, std::string_view key, std::string_view builtIn) {
  auto override = defaults.string(key);
  return override && isServiceURL(*override) ? std::move(*override) : std::string(builtIn);
}

}  // namespace

CompanionSettings CompanionSettings::load(const SettingsStore& defaults) {
  CompanionSettings settings;
  settings.baseURL = addressOrBuiltIn(defaults, keys::baseURL, builtInBaseURL);
  settings.apiURL = addressOrBuiltIn(defaults, keys::apiURL, builtInApiURL);
  settings.imessageChannelId = defaults.string(keys::imessageChannelId);
  settings.smsChannelId = defaults.string(keys::smsChannelId);
  settings.whatsappChannelId = defaults.string(keys::whatsappChannelId);
  return settings;
}

}  // namespace quarl

#pragma once

#include <optional>
#include <string>

#include "Credentials.h"
#include "SettingsStore.h"

namespace quarl {

// What the companion keeps between launches, as loaded at start. Credentials start as none;
// the coordinator fills them from the keychain after loading.
struct CompanionSettings {
  static constexpr std::string_view builtInBaseURL = "https://quarl.app";
  static constexpr std::string_view builtInApiURL = "https://api.quarl.app";

  std::string baseURL;
  std::string apiURL;
  std::optional<Credentials> credentials;
  std::optional<std::string> imessageChannelId;
  std::optional<std::string> smsChannelId;
  std::optional<std::string> whatsappChannelId;

  // An override that is absent or not an http(s) URL with a host gives the built-in address.
  static CompanionSettings load(const SettingsStore& defaults);
};

}  // namespace quarl

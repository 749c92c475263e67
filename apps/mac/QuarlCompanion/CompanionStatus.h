#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Clock.h"
#include "MacPermissionMode.h"
#include "SettingsStore.h"
#include "WhatsAppSessionState.h"
#include "platform/Keychain.h"

namespace quarl {

// What the menu shows, as text: for `quarl-companion status`, from the running host or, when
// none runs, from what the companion keeps between launches.
struct CompanionStatus {
  struct WhatsApp {
    bool switchedOn = false;
    bool hostsSession = false;  // this computer has hosted a linked session
    std::optional<std::string> unavailable;        // why this host cannot hold the page
    std::optional<WhatsAppWeb::SessionState> seen;  // what the page showed last; none when not read yet
  };

  bool running = false;
  bool signedIn = false;
  std::optional<std::string> deviceId;
  std::string summary;  // the menu's one-line status; running hosts only
  std::vector<std::string> offered;
  std::optional<std::string> whyNot;  // what keeps something from being offered or read
  std::vector<std::string> channelIds;  // the kinds the service has named a channel for
  std::optional<SystemTime> lastCaptureAt;
  WhatsApp whatsapp;
  bool canOperate = false;  // this host has what operating the computer needs; running hosts only
  bool operatorAllowed = false;
  bool keepAwake = false;  // the owner lets the operator keep this computer awake while it works
  std::optional<MacPermissionMode> mode;  // as the service last said; none before it has
  std::optional<std::string> liveRun;

  // What the companion keeps between launches, for when no host runs.
  static CompanionStatus kept(const SettingsStore& defaults, const Keychain& keychain);

  std::string text(SystemTime now) const;
};

}  // namespace quarl

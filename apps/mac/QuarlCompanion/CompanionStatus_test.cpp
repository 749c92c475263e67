#include "CompanionStatus.h"

#include <gmock/gmock.h>

#include "../tests/support/MemorySettingsStore.h"
#include "../tests/support/TemporaryDirectory.h"
#include "SettingsKeys.h"
#include "platform/linux/Keychain_linux.h"

namespace quarl {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;

TEST(CompanionStatus, WhatIsKeptSaysOnlyWhatTheFilesProveAndARunningHostSaysWhatItSees) {
  testing::TemporaryDirectory folder;
  SystemClock clock;
  FileKeychain keychain(folder.path(), clock);
  testing::MemorySettingsStore defaults;
  defaults.write(keys::deviceId, "dev-1");
  keychain.write(keys::accessTokenAccount, "access");
  EXPECT_THAT(CompanionStatus::kept(defaults, keychain).text(clock.now()),
              HasSubstr("\nThis computer is not signed in to Quarl.\n"))
      << "a device id without both tokens cannot sign in";

  keychain.write(keys::refreshTokenAccount, "refresh");
  defaults.write(keys::smsChannelId, "ch-sms");
  defaults.write(keys::whatsappEnabled, true);
  defaults.write(keys::whatsappHostsSession, true);
  EXPECT_EQ(CompanionStatus::kept(defaults, keychain).text(clock.now()),
            "No running Quarl answered on this computer; this is what it keeps.\n"
            "Credentials are kept for device dev-1.\n"
            "Channels the service named: sms\n"
            "Last read: only a running Quarl reads messages\n"
            "WhatsApp: switched on; this computer last held a linked session\n"
            "Operator mode: off\n");

  const auto now = SystemTime(1700000000s);
  CompanionStatus running;
  running.running = true;
  running.signedIn = true;
  running.summary = "Last read 2 minutes ago";
  running.offered = {"imessage", "sms"};
  running.whyNot = "WhatsApp is not being offered by this Mac: the page is still loading.";
  running.lastCaptureAt = now - 2min;
  running.whatsapp = {true, true, std::nullopt, WhatsAppWeb::SessionState::syncing()};
  running.operatorAllowed = true;
  EXPECT_EQ(running.text(now),
            "Quarl is running on this computer.\n"
            "Last read 2 minutes ago\n"
            "Offered: imessage, sms\n"
            "Why not more: WhatsApp is not being offered by this Mac: the page is still loading.\n"
            "Last read: 2 minutes ago\n"
            "WhatsApp: syncing (WhatsApp is downloading this account's messages)\n"
            "Operator mode: on, mode not heard from the service yet; no run is live\n");
  running.whatsapp.unavailable = "this computer has no display";
  running.mode = MacPermissionMode::autoRead;
  running.liveRun = "run-7";
  EXPECT_THAT(running.text(now), HasSubstr("\nWhatsApp: switched on, but this computer cannot hold WhatsApp Web: this "
                                           "computer has no display\nOperator mode: on, mode Auto for reading; run "
                                           "run-7 is live\n"));
}

}  // namespace
}  // namespace quarl

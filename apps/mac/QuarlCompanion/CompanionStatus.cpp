#include "CompanionStatus.h"

#include "CompanionState.h"
#include "DateText.h"
#include "SettingsKeys.h"

namespace quarl {

namespace {

std::string whatsappLine(const CompanionStatus& status) {
  const auto& whatsapp = status.whatsapp;
  if (!whatsapp.switchedOn) return "not switched on";
  if (whatsapp.unavailable) return "switched on, but this computer cannot hold WhatsApp Web: " + *whatsapp.unavailable;
  if (whatsapp.seen) return WhatsAppWeb::describe(*whatsapp.seen);
  if (!status.running) return whatsapp.hostsSession ? "switched on; this computer last held a linked session"
                                                     : "switched on, never linked on this computer";
  return "switched on; the page has not been read yet";
}

std::string operatorLine(const CompanionStatus& status) {
  std::string line = status.operatorAllowed ? "on" : "off";
  if (status.keepAwake) line += ", keeps the computer awake while it works";
  if (status.mode) line += ", mode " + std::string(label(*status.mode));
  else if (status.running) line += ", mode not heard from the service yet";
  if (status.liveRun) return line + "; run " + *status.liveRun + " is live";
  return line + (status.running ? "; no run is live" : "");
}

}  // namespace

CompanionStatus CompanionStatus::kept(const SettingsStore& defaults, const Keychain& keychain) {
  CompanionStatus status;
  status.deviceId = defaults.string(keys::deviceId);
  status.signedIn = status.deviceId && keychain.read(keys::accessTokenAccount) && keychain.read(keys::refreshTokenAccount);
  for (const auto& [kind, key] : {std::pair{"imessage", keys::imessageChannelId}, std::pair{"sms", keys::smsChannelId},
                                  std::pair{"whatsapp", keys::whatsappChannelId}}) {
    if (defaults.string(key)) status.channelIds.emplace_back(kind);
  }
  status.whatsapp.switchedOn = defaults.boolean(keys::whatsappEnabled).value_or(false);
  status.whatsapp.hostsSession = defaults.boolean(keys::whatsappHostsSession).value_or(false);
  status.operatorAllowed = defaults.boolean(keys::operatorAllowed).value_or(false);
  status.keepAwake = defaults.boolean(keys::keepAwakeWhileWorking).value_or(false);
  return status;
}

std::string CompanionStatus::text(SystemTime now) const {
  std::string text;
  const auto add = [&text](const std::string& name, const std::string& value) {
    text += name + ": " + value + "\n";
  };
  if (running) {
    text += "Quarl is running on this computer.\n";
    text += summary + "\n";
    add("Offered", offered.empty() ? "nothing" : joinedChannels(offered));
    if (whyNot && *whyNot != summary) add("Why not more", *whyNot);
    add("Last read", lastCaptureAt ? relativeDateText(*lastCaptureAt, now) : "no messages read yet");
  } else {
    // A host may run and not answer, so the files speak only for themselves.
    text += "No running Quarl answered on this computer; this is what it keeps.\n";
    text += signedIn ? "Credentials are kept for device " + *deviceId + ".\n" : "This computer is not signed in to Quarl.\n";
    add("Channels the service named", channelIds.empty() ? "none yet" : joinedChannels(channelIds));
    add("Last read", "only a running Quarl reads messages");
  }
  add("WhatsApp", whatsappLine(*this));
  add("Operator mode", operatorLine(*this));
  return text;
}

}  // namespace quarl

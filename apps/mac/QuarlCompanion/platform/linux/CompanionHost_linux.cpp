#include "CompanionHost_linux.h"

#include "desktop/LinuxDesktop_linux.h"

#include <sys/utsname.h>

#include <iostream>

#include "ChatDatabase.h"
#include "Workers.h"

namespace quarl {

// Linux has no Messages application, but a store copied to where a Mac keeps it is read as the
// Mac reads it; without one the store counts as not readable.
boost::asio::awaitable<MessagesStoreReading> LinuxCompanionHost::readMessagesStore(std::string path) {
  MessagesStoreReading reading;
  co_await runOnWorker([&reading, &path] { reading = readMessagesStoreNow(ChatDatabase{path}); });
  co_return reading;
}

std::optional<std::string> LinuxCompanionHost::contactName(const std::string&) { return std::nullopt; }


void LinuxCompanionHost::showPairingCode(const std::string& userCode, const std::string& verificationUrl) {
  std::cout << "To connect this computer to Quarl, open " << verificationUrl << " and confirm the code " << userCode
            << "." << std::endl;
}

// There is no icon to badge on the headless host; the coordinator's log line is the badge.
void LinuxCompanionHost::setBadge(const std::optional<std::string>&) {}

std::string LinuxCompanionHost::hardwareDescription() {
  utsname system{};
  if (::uname(&system) != 0) return "Linux computer";
  return std::string(system.machine) + " Linux computer";
}

// A headless Linux computer has no accessibility tree, screenshots or input events to offer,
// and nothing like Full Disk Access stands between the owner's processes and their files.
// Whether a screen is unlocked cannot be told without a desktop.
OperatorCaps LinuxCompanionHost::operatorCaps() {
  OperatorCaps caps;
  caps.accessibility = CapabilityState::off;
  caps.screenRecording = CapabilityState::off;
  caps.postEvents = CapabilityState::off;
  caps.fullDiskAccess = CapabilityState::granted;
  caps.unlockedAtScreen = CapabilityState::unknown;
  if (desktop_) desktop_->fill(caps);
  return caps;
}

}  // namespace quarl

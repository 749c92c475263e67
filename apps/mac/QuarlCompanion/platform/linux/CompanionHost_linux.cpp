#include "CompanionHost_linux.h"

#include <sys/utsname.h>

#include <iostream>

namespace quarl {

// The Messages store reader is not built into this host yet, so the store counts as not
// readable: the heartbeat then carries the Full Disk Access sentence and no Messages channel.
boost::asio::awaitable<MessagesStoreReading> LinuxCompanionHost::readMessagesStore() {
  co_return MessagesStoreReading{false, std::nullopt};
}

std::optional<WhatsAppSettledState> LinuxCompanionHost::whatsappState() { return std::nullopt; }

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

}  // namespace quarl

#pragma once

#include "platform/CompanionHost.h"

namespace quarl {

// The headless Linux host: no Messages application and no contacts directory, the pairing code
// printed on standard output, the badge as a log line only.
class LinuxCompanionHost final : public CompanionHost {
 public:
  boost::asio::awaitable<MessagesStoreReading> readMessagesStore(std::string path) override;
  std::optional<std::string> contactName(const std::string& handle) override;
  void showPairingCode(const std::string& userCode, const std::string& verificationUrl) override;
  void setBadge(const std::optional<std::string>& label) override;
  std::string hardwareDescription() override;
  OperatorCaps operatorCaps() override;
};

}  // namespace quarl

#pragma once

#include <memory>

#include "platform/CompanionHost.h"

namespace quarl {

struct LinuxDesktop;

// The headless Linux host: no Messages application and no contacts directory, the pairing code
// printed on standard output, the badge as a log line only.
class LinuxCompanionHost final : public CompanionHost {
 public:
  LinuxCompanionHost() = default;
  // On a desktop, the operator may also look at and work the screen.
  explicit LinuxCompanionHost(std::shared_ptr<const LinuxDesktop> desktop) : desktop_(std::move(desktop)) {}
  boost::asio::awaitable<MessagesStoreReading> readMessagesStore(std::string path) override;
  std::optional<std::string> contactName(const std::string& handle) override;
  void showPairingCode(const std::string& userCode, const std::string& verificationUrl) override;
  void setBadge(const std::optional<std::string>& label) override;
  std::string hardwareDescription() override;
  OperatorCaps operatorCaps() override;

 private:
  std::shared_ptr<const LinuxDesktop> desktop_;
};

}  // namespace quarl

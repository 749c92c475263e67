#pragma once

#include "platform/CompanionHost.h"

namespace quarl {

// The Mac as the coordinator asks about it: the Messages store behind Full Disk Access, the
// owner's contacts, the browser for the pairing page, the dock badge, the model, and what the
// system's privacy settings let the operator do.
class MacCompanionHost final : public CompanionHost {
 public:
  boost::asio::awaitable<MessagesStoreReading> readMessagesStore(std::string path) override;
  std::optional<std::string> contactName(const std::string& handle) override;
  void showPairingCode(const std::string& userCode, const std::string& verificationUrl) override;
  void setBadge(const std::optional<std::string>& label) override;
  std::string hardwareDescription() override;
  OperatorCaps operatorCaps() override;

  // Opens the pane of System Settings named by `anchor` under Privacy & Security, such as
  // "Privacy_AllFiles" for Full Disk Access.
  static void openPrivacyPane(const std::string& anchor);
};

}  // namespace quarl

#pragma once

#include "platform/LoginItem.h"

namespace quarl {

// The question as a modal alert, and the application registered with ServiceManagement's
// main-app service, which the owner sees under System Settings → General → Login Items.
class MacLoginItem final : public LoginItem {
 public:
  boost::asio::awaitable<bool> ask(LoginQuestion question) override;
  std::optional<std::string> registerMainApplication() override;
  bool isRegistered() override;
  void tell(const std::string& sentence) override;
};

}  // namespace quarl

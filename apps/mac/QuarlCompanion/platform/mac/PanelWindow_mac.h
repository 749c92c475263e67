#pragma once

#include <functional>
#include <memory>

#include "platform/CompanionWindows.h"

namespace quarl {

// The panel window: a WKWebView on the default website data store, whose cookie store holds the
// panel's session. The panel and the companion's own pages post "signIn" and "sessionLapsed"
// to the "quarl" message handler; downloads go to the Downloads folder and file inputs open
// the system's file picker.
class MacPanelView final : public PanelView, public std::enable_shared_from_this<MacPanelView> {
 public:
  struct Handlers {
    std::function<void()> signIn;
    std::function<void()> sessionLapsed;
    // The pairing code to show on the sign-in page while a pairing runs.
    std::function<std::optional<std::string>()> pairingCode;
  };

  explicit MacPanelView(Handlers handlers);
  ~MacPanelView() override;

  boost::asio::awaitable<std::size_t> storeCookies(std::vector<std::string> setCookie, std::string url) override;
  void load(const std::string& url) override;
  void reload() override;
  void showSignIn(const std::optional<std::string>& reason) override;
  void showNotice(const std::optional<std::string>& heading, const std::string& text) override;

  void bringUp();
  void close();

  struct Window;

 private:
  Window* window_;
};

}  // namespace quarl

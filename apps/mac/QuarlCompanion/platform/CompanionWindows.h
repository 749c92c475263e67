#pragma once

#include <boost/asio/awaitable.hpp>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quarl {

// The panel window's web view, as the coordinator signs it in and tells it what to show.
// Main executor only.
class PanelView {
 public:
  virtual ~PanelView() = default;
  // Adds every cookie of these `Set-Cookie` header values to the view's cookie store, each for
  // `url` unless it names its own domain; how many cookies the store took.
  virtual boost::asio::awaitable<std::size_t> storeCookies(std::vector<std::string> setCookie, std::string url) = 0;
  virtual void load(const std::string& url) = 0;
  virtual void reload() = 0;
  // The sign-in page with its Sign in button; `reason` says why it is shown, none for a first sign-in.
  virtual void showSignIn(const std::optional<std::string>& reason) = 0;
  // A page of the companion's own, for when the panel itself cannot be shown.
  virtual void showNotice(const std::optional<std::string>& heading, const std::string& text) = 0;
};

// The application's two windows. A host without windows (the headless Linux host) has none.
// Main executor only.
class CompanionWindows {
 public:
  virtual ~CompanionWindows() = default;
  virtual void showSetupWindow() = 0;
  // Brings the panel window up, making it the first time; its web view.
  virtual std::shared_ptr<PanelView> openPanelWindow() = 0;
  virtual void closePanelWindow() = 0;
};

}  // namespace quarl

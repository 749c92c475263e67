#pragma once

#include <boost/asio/any_io_executor.hpp>

#include "platform/WhatsAppPage.h"

namespace quarl {

// WhatsApp Web in a WKWebView on the default, persistent website data store, so that the link
// survives a relaunch, in a window parked off every screen. Everything runs on the main thread,
// where the main executor runs; WebKit's completion handlers come back there too.
//
// The page keeps to the site it was asked to load: another navigation, a new window, a download
// and every request for the camera or microphone are refused and logged.
class MacWhatsAppPage final : public WhatsAppPage {
 public:
  explicit MacWhatsAppPage(boost::asio::any_io_executor executor);
  ~MacWhatsAppPage() override;

  boost::asio::awaitable<std::optional<std::string>> open() override;
  boost::asio::awaitable<std::string> currentUrl() override;
  boost::asio::awaitable<void> load(std::string url, std::chrono::seconds timeout) override;
  boost::asio::awaitable<ScriptResult> evaluate(std::string script) override;
  boost::asio::awaitable<ScriptResult> callAsync(std::string body, boost::json::object arguments) override;
  boost::asio::awaitable<std::vector<WhatsAppWeb::Rect>> screenFrames() override;
  boost::asio::awaitable<WhatsAppWeb::Point> windowOrigin() override;
  boost::asio::awaitable<void> placeWindow(WhatsAppWeb::Point origin) override;
  boost::asio::awaitable<void> presentWindow(std::string title) override;
  void watchWindow(std::function<void()> moved, std::function<bool()> closing) override;
  boost::asio::awaitable<std::optional<std::string>> savePicture(std::string path) override;

  // Makes the parked window key and the page its first responder without bringing the
  // application forward, so that keys posted to this process reach the page. Only while the
  // owner is in another app: in this one it would move his typing to a window he cannot see.
  void takeKeys();

  struct View;

 private:
  void create();

  boost::asio::any_io_executor executor_;
  View* view_ = nullptr;
};

}  // namespace quarl

#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <filesystem>
#include <memory>

#include "platform/WhatsAppPage.h"

namespace quarl {

class GtkThread;
struct WebKitView;

// WhatsApp Web in WebKitGTK, in a real X window kept off every screen. GTK runs on a thread of
// its own; every call here hands its work to that thread and awaits the answer on the caller's
// executor. Nothing starts (no thread, no display, no web process) until `open`.
//
// The page keeps to the site it was asked to load: another navigation, a new window, a download
// and every permission request are refused and logged. Its cookies and storage live on disk in
// `dataFolder`, so a link survives a restart.
//
// Exported from its library, which exports nothing else, for the tests and benchmarks that link it.
class __attribute__((visibility("default"))) WebKitWhatsAppPage final : public WhatsAppPage {
 public:
  WebKitWhatsAppPage(boost::asio::any_io_executor executor, std::filesystem::path dataFolder);
  ~WebKitWhatsAppPage() override;

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

 private:
  // What the executor hears from the window: kept apart from the page, since a move can be
  // reported after the page is gone.
  struct Watchers {
    std::function<void()> moved;
    std::function<bool()> closing;
  };

  boost::asio::awaitable<std::optional<std::string>> startGtk();

  boost::asio::any_io_executor executor_;
  std::filesystem::path dataFolder_;
  std::shared_ptr<Watchers> watchers_ = std::make_shared<Watchers>();
  std::optional<std::optional<std::string>> opened_;  // the answer of the one opening
  bool opening_ = false;
  GtkThread* gtk_ = nullptr;          // the process's, once open
  std::unique_ptr<WebKitView> view_;  // touched on the GTK thread only
};

}  // namespace quarl

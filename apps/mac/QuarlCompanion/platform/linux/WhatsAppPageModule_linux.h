#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <filesystem>
#include <memory>

#include "platform/WhatsAppPage.h"

namespace quarl {

// The WebKit page host, loaded from its own library beside this program the first time the page
// is opened: WebKitGTK and GTK are a few hundred libraries, and a host with WhatsApp off never
// maps them. Every call before a successful `open` answers as a page that is not there.
class WhatsAppPageModule final : public WhatsAppPage {
 public:
  static constexpr const char* libraryName = "libquarl_webkit_page.so";

  WhatsAppPageModule(boost::asio::any_io_executor executor, std::filesystem::path dataFolder,
                     std::filesystem::path library);
  // The library beside the running program.
  static std::filesystem::path besideThisProgram();
  // `$XDG_DATA_HOME/quarl/whatsapp`, or `~/.local/share/quarl/whatsapp`.
  static std::filesystem::path defaultDataFolder();

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
  // The page the library made; the sentence of why there is none.
  std::shared_ptr<WhatsAppPage> loaded(std::string& refusal);

  boost::asio::any_io_executor executor_;
  std::filesystem::path dataFolder_;
  std::filesystem::path library_;
  std::shared_ptr<WhatsAppPage> page_;
};

}  // namespace quarl

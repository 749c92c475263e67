#include "WhatsAppPageModule_linux.h"

#include <dlfcn.h>

#include <cstdlib>

namespace quarl {
namespace asio = boost::asio;

namespace {

constexpr std::string_view notOpen = "the page is not open";

// What the library exports: it makes the WebKit page host into `made`.
using MakePage = void (*)(const asio::any_io_executor* executor, const std::filesystem::path* dataFolder,
                          std::shared_ptr<WhatsAppPage>* made);

}  // namespace

WhatsAppPageModule::WhatsAppPageModule(asio::any_io_executor executor, std::filesystem::path dataFolder,
                                       std::filesystem::path library)
    : executor_(std::move(executor)), dataFolder_(std::move(dataFolder)), library_(std::move(library)) {}

std::filesystem::path WhatsAppPageModule::besideThisProgram() {
  std::error_code failed;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", failed);
  return (failed ? std::filesystem::path(".") : program.parent_path()) / libraryName;
}

std::filesystem::path WhatsAppPageModule::defaultDataFolder() {
  if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg) return std::filesystem::path(xdg) / "quarl" / "whatsapp";
  const char* home = std::getenv("HOME");
  return std::filesystem::path(home && *home ? home : ".") / ".local" / "share" / "quarl" / "whatsapp";
}

std::shared_ptr<WhatsAppPage> WhatsAppPageModule::loaded(std::string& refusal) {
  if (page_) return page_;
  // Never closed: GTK and WebKit cannot be unloaded from a process that has started them.
  void* library = ::dlopen(library_.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    refusal = "the WebKit page host could not be loaded: " + std::string(::dlerror());
    return nullptr;
  }
  auto make = reinterpret_cast<MakePage>(::dlsym(library, "quarlMakeWebKitWhatsAppPage"));
  if (!make) {
    refusal = "the WebKit page host in " + library_.string() + " does not make a page";
    return nullptr;
  }
  make(&executor_, &dataFolder_, &page_);
  return page_;
}

asio::awaitable<std::optional<std::string>> WhatsAppPageModule::open() {
  std::string refusal;
  auto page = loaded(refusal);
  if (!page) co_return refusal;
  co_return co_await page->open();
}

asio::awaitable<std::string> WhatsAppPageModule::currentUrl() {
  if (!page_) co_return std::string();
  co_return co_await page_->currentUrl();
}

asio::awaitable<void> WhatsAppPageModule::load(std::string url, std::chrono::seconds timeout) {
  if (page_) co_await page_->load(std::move(url), timeout);
}

asio::awaitable<WhatsAppPage::ScriptResult> WhatsAppPageModule::evaluate(std::string script) {
  if (!page_) co_return ScriptResult{std::nullopt, std::string(notOpen)};
  co_return co_await page_->evaluate(std::move(script));
}

asio::awaitable<WhatsAppPage::ScriptResult> WhatsAppPageModule::callAsync(std::string body, boost::json::object arguments) {
  if (!page_) co_return ScriptResult{std::nullopt, std::string(notOpen)};
  co_return co_await page_->callAsync(std::move(body), std::move(arguments));
}

asio::awaitable<std::vector<WhatsAppWeb::Rect>> WhatsAppPageModule::screenFrames() {
  if (!page_) co_return std::vector<WhatsAppWeb::Rect>{};
  co_return co_await page_->screenFrames();
}

asio::awaitable<WhatsAppWeb::Point> WhatsAppPageModule::windowOrigin() {
  if (!page_) co_return WhatsAppWeb::Point{};
  co_return co_await page_->windowOrigin();
}

asio::awaitable<void> WhatsAppPageModule::placeWindow(WhatsAppWeb::Point origin) {
  if (page_) co_await page_->placeWindow(origin);
}

asio::awaitable<void> WhatsAppPageModule::presentWindow(std::string title) {
  if (page_) co_await page_->presentWindow(std::move(title));
}

void WhatsAppPageModule::watchWindow(std::function<void()> moved, std::function<bool()> closing) {
  if (page_) page_->watchWindow(std::move(moved), std::move(closing));
}

asio::awaitable<std::optional<std::string>> WhatsAppPageModule::savePicture(std::string path) {
  if (!page_) co_return std::string(notOpen);
  co_return co_await page_->savePicture(std::move(path));
}

}  // namespace quarl

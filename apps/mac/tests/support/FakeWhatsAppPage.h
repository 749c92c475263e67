#pragma once

#include <deque>
#include <functional>
#include <map>

#include "Clock.h"
#include "WhatsAppScripts.h"
#include "platform/WhatsAppPage.h"

namespace quarl::testing {

// A page that answers at once, as the test sets it: the probe's answer, the QR code's payload,
// and any other script by its text. It keeps what was asked of it: loads, window places,
// presentations.
class FakeWhatsAppPage final : public WhatsAppPage {
 public:
  boost::asio::awaitable<std::optional<std::string>> open() override {
    ++opens;
    co_return refusal;
  }
  boost::asio::awaitable<std::string> currentUrl() override { co_return loads.empty() ? std::string() : loads.back(); }
  boost::asio::awaitable<void> load(std::string url, std::chrono::seconds) override {
    loads.push_back(std::move(url));
    co_return;
  }
  boost::asio::awaitable<ScriptResult> evaluate(std::string script) override {
    if (script == WhatsAppWeb::sessionProbeScript()) {
      ++probes;
      if (probeAnswers.empty()) co_return ScriptResult{probeAnswer, std::nullopt};
      auto next = std::move(probeAnswers.front());
      probeAnswers.pop_front();
      co_return ScriptResult{std::move(next), std::nullopt};
    }
    if (script == WhatsAppWeb::linkCodeScript()) co_return ScriptResult{linkCode, std::nullopt};
    if (auto scripted = scriptAnswers.find(script); scripted != scriptAnswers.end() && !scripted->second.empty()) {
      auto next = scripted->second.front();
      if (scripted->second.size() > 1) scripted->second.pop_front();
      co_return ScriptResult{std::move(next), std::nullopt};
    }
    co_return ScriptResult{std::nullopt, "ReferenceError: nothing answers this script here"};
  }
  boost::asio::awaitable<ScriptResult> callAsync(std::string body, boost::json::object arguments) override {
    calls.emplace_back(std::move(body), std::move(arguments));
    if (asyncTakes.count() > 0) co_await clock->sleep(asyncTakes);
    if (!asyncAnswers.empty()) {
      auto next = std::move(asyncAnswers.front());
      asyncAnswers.pop_front();
      co_return next;
    }
    co_return asyncResult;
  }
  boost::asio::awaitable<std::vector<WhatsAppWeb::Rect>> screenFrames() override { co_return screens; }
  boost::asio::awaitable<WhatsAppWeb::Point> windowOrigin() override { co_return origin; }
  boost::asio::awaitable<void> placeWindow(WhatsAppWeb::Point at) override {
    origin = at;
    places.push_back(at);
    co_return;
  }
  boost::asio::awaitable<void> presentWindow(std::string title) override {
    presented.push_back(std::move(title));
    origin = {170, 50};
    co_return;
  }
  void watchWindow(std::function<void()> onMoved, std::function<bool()> onClosing) override {
    moved = std::move(onMoved);
    closing = std::move(onClosing);
  }
  boost::asio::awaitable<std::optional<std::string>> savePicture(std::string path) override {
    pictures.push_back(std::move(path));
    co_return std::nullopt;
  }

  // Set by the test.
  std::optional<std::string> refusal;
  std::string probeAnswer = R"({"state":"linked"})";
  std::deque<std::string> probeAnswers;  // taken one per probe before probeAnswer
  std::string linkCode;
  std::vector<WhatsAppWeb::Rect> screens{{{0, 0}, {1440, 900}}};
  ScriptResult asyncResult{"{}", std::nullopt};  // every asynchronous script's answer after `asyncAnswers`
  std::deque<ScriptResult> asyncAnswers;         // taken one per asynchronous script
  // Other synchronous scripts' answers by their text, taken in turn; the last one stays.
  std::map<std::string, std::deque<std::string>, std::less<>> scriptAnswers;
  std::chrono::milliseconds asyncTakes{0};        // on `clock`
  std::shared_ptr<const Clock> clock;

  // Kept for the test.
  int opens = 0;
  int probes = 0;
  std::vector<std::string> loads;
  std::vector<WhatsAppWeb::Point> places;
  std::vector<std::string> presented;
  std::vector<std::string> pictures;
  std::vector<std::pair<std::string, boost::json::object>> calls;
  WhatsAppWeb::Point origin;
  std::function<void()> moved;
  std::function<bool()> closing;
};

}  // namespace quarl::testing

#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/json/object.hpp>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "WhatsAppParking.h"

namespace quarl {

// The web view WhatsApp Web runs in, and the window that hosts it, as a platform gives them.
// Every call is made from the main executor; what needs the page or the window system is
// awaited there, never blocked on. The window is created with the view and never closes.
class WhatsAppPage {
 public:
  // What a script gave back: its string answer, or the page's sentence for why it failed.
  struct ScriptResult {
    std::optional<std::string> answer;
    std::optional<std::string> error;
  };

  virtual ~WhatsAppPage() = default;

  // Creates the view and its window on first use, and the display they need. The sentence
  // for why this computer cannot host the page, or none once it can.
  virtual boost::asio::awaitable<std::optional<std::string>> open() = 0;
  // The address the view shows now; empty before any load.
  virtual boost::asio::awaitable<std::string> currentUrl() = 0;
  virtual boost::asio::awaitable<void> load(std::string url, std::chrono::seconds timeout) = 0;
  // A synchronous expression, evaluated in the page's main frame.
  virtual boost::asio::awaitable<ScriptResult> evaluate(std::string script) = 0;
  // The body of an asynchronous function, with `arguments` bound by name, in the page's own
  // world: its answer once the promise settles.
  virtual boost::asio::awaitable<ScriptResult> callAsync(std::string body, boost::json::object arguments) = 0;

  virtual boost::asio::awaitable<std::vector<WhatsAppWeb::Rect>> screenFrames() = 0;
  virtual boost::asio::awaitable<WhatsAppWeb::Point> windowOrigin() = 0;
  // Moves the window and orders it in without focusing it: a window that is not ordered in
  // runs no timers and renders nothing.
  virtual boost::asio::awaitable<void> placeWindow(WhatsAppWeb::Point origin) = 0;
  // Titles the window, centres it on screen and brings it to the front for the owner.
  virtual boost::asio::awaitable<void> presentWindow(std::string title) = 0;
  // `moved` runs on the main executor after the window moved; `closing` when someone asks to
  // close it, and answers whether it may.
  virtual void watchWindow(std::function<void()> moved, std::function<bool()> closing) = 0;
  // Saves a picture of the view as a PNG at `path`; the sentence of a failure, or none.
  virtual boost::asio::awaitable<std::optional<std::string>> savePicture(std::string path) = 0;
};

}  // namespace quarl

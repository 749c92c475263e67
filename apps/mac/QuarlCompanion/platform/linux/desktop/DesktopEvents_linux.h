#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "platform/OperatorBar.h"
#include "platform/StopHotKey.h"

typedef struct _XDisplay Display;

namespace quarl {

// The stop keys and the operator bar on an X11 desktop, served by one thread with a display
// connection of its own. The keys (Control-Alt-Super-period, the Mac's Control-Option-Command-
// period) are grabbed on the root window; the bar is a small always-on-top dock window that the
// window manager never gives the focus, so acts still go to the app the owner had in front.
// What the owner presses runs on the main executor.
class DesktopEvents final : public OperatorBar, public StopHotKey {
 public:
  static constexpr int barWidth = 360;
  static constexpr int barHeight = 40;
  static constexpr int barMargin = 8;
  static constexpr std::string_view barSentence = "Quarl is operating this Mac";

  // None, with `refusal` set, when the display cannot be opened.
  static std::shared_ptr<DesktopEvents> open(boost::asio::any_io_executor main, std::string& refusal);
  ~DesktopEvents() override;

  std::optional<std::string> registerKeys(std::function<void()> pressed) override;
  // Maps the bar and waits (a second at most) until the display has it on screen.
  void show(const std::string& runId, std::function<void()> onStop) override;
  void hide() override;
  bool isShown() const override { return shown_; }

 private:
  DesktopEvents(boost::asio::any_io_executor main, Display* display, int wake[2]);
  void serve();
  void handOver(std::function<void()> work);
  void handle(void* event);
  void draw();
  void createBar();

  boost::asio::any_io_executor main_;
  Display* display_;
  int wake_[2];
  unsigned long bar_ = 0;
  std::atomic<bool> shown_{false};
  std::mutex lock_;
  std::condition_variable mapped_;
  std::deque<std::function<void()>> work_;
  std::function<void()> stopKeys_;  // on the thread
  std::function<void()> onStop_;    // on the thread
  std::optional<std::string> shownFor_;  // main executor
  bool quitting_ = false;
  std::thread thread_;
};

}  // namespace quarl

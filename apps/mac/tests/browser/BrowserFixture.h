#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <gmock/gmock.h>

#include <cstdlib>
#include <memory>

#include "CapturingLogSink.h"
#include "DevBrainAdmin.h"
#include "DevBrainProcess.h"
#include "ManualClock.h"
#include "MemorySettingsStore.h"
#include "platform/linux/PrivateDisplay_linux.h"
#include "RunAwaitable.h"
#include "SettingsKeys.h"
#include "TemporaryDirectory.h"
#include "platform/linux/WhatsAppPageModule_linux.h"
#include "WhatsAppSession.h"

namespace quarl::testing {

namespace asio = boost::asio;
namespace json = boost::json;
using namespace std::chrono_literals;
using WhatsAppWeb::SessionState;

// One display and one devbrain for every test here: GTK starts once per process.
class BrowserWorld : public ::testing::Environment {
 public:
  void SetUp() override {
    std::string refusal;
    display_ = PrivateDisplay::start(refusal);
    ASSERT_TRUE(display_) << refusal;
    ::setenv("DISPLAY", display_->name().c_str(), 1);
    ::setenv("XAUTHORITY", display_->authority().c_str(), 1);
    brain_ = std::make_unique<DevBrainProcess>();
  }
  void TearDown() override { brain_.reset(); }
  static DevBrainProcess& brain() { return *brain_; }

 private:
  static inline std::unique_ptr<PrivateDisplay> display_;
  static inline std::unique_ptr<DevBrainProcess> brain_;
};

class WhatsAppPageInWebKit : public ::testing::Test {
 protected:
  WhatsAppPageInWebKit() {
    defaults_->write(keys::whatsappEnabled, true);
    defaults_->write(keys::whatsappWebURL, json::string(BrowserWorld::brain().baseURL() + "/whatsapp/"));
    admin_.post("/admin/whatsapp/screen", json::object{{"screen", "link"}, {"markup", "2026"}});
  }
  ~WhatsAppPageInWebKit() override {
    session_.reset();
    page_.reset();
    QuarlLog::install(nullptr);
  }

  template <class T>
  T run(asio::awaitable<T> work) { return runAwaitable(io_, std::move(work)); }

  // Real time passes on the loop, so that the page's answers arrive meanwhile.
  void pause(std::chrono::milliseconds length) {
    run([](asio::io_context& io, std::chrono::milliseconds length) -> asio::awaitable<bool> {
      asio::steady_timer timer(io, length);
      co_await timer.async_wait(asio::use_awaitable);
      co_return true;
    }(io_, length));
  }

  // Probes until the page reads `wanted`, for up to 20 s; the last state read.
  SessionState probeUntil(const SessionState& wanted) {
    SessionState state;
    for (int i = 0; i < 100; ++i) {
      state = run(session_->refreshState());
      if (state == wanted) break;
      pause(200ms);
    }
    return state;
  }

  // Loads the page again and waits for the new one's chat list.
  void reloadUntilChats() {
    if (!session_->hasNavigated()) {
      run(session_->load());
    } else {
      evaluate("window.quarlBefore = true; 1");
      run(session_->renavigate("a fresh page for the test"));
    }
    for (int i = 0; i < 100 && evaluate("String(!window.quarlBefore && !!document.querySelector('#pane-side'))") != "true"; ++i) {
      pause(100ms);
    }
  }

  std::string evaluate(const std::string& script) { return run(session_->evaluate(script)).value_or("(failed)"); }

  asio::io_context io_;
  TemporaryDirectory folder_;
  std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>(SystemTime(1800000000s));
  std::shared_ptr<MemorySettingsStore> defaults_ = std::make_shared<MemorySettingsStore>();
  // Loaded as the host loads it: a program that links WebKit directly exports its own copies of
  // the C++ library's templates to JavaScriptCore, which the sanitizers then catch it using.
  std::shared_ptr<WhatsAppPage> page_ =
      std::make_shared<WhatsAppPageModule>(io_.get_executor(), folder_.path(), QUARL_PAGE_LIBRARY_PATH);
  std::shared_ptr<WhatsAppSession> session_ = WhatsAppSession::create(io_.get_executor(), clock_, defaults_, page_);
  std::shared_ptr<CapturingLogSink> log_ = CapturingLogSink::installed();
  DevBrainAdmin admin_{BrowserWorld::brain()};
};

}  // namespace quarl::testing

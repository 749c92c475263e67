#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <algorithm>
#include <gmock/gmock.h>
#include <map>

#include "../support/CapturingLogSink.h"
#include "../support/DevBrainAdmin.h"
#include "../support/FakeCompanionHost.h"
#include "../support/MemorySettingsStore.h"
#include "../support/RunAwaitable.h"
#include "../support/SignedInCompanion.h"
#include "../support/TemporaryDirectory.h"
#include "Companion.h"
#include "SettingsKeys.h"
#include "platform/linux/Keychain_linux.h"

namespace quarl {
namespace {

namespace json = boost::json;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

// A web view that keeps cookies by name, as a browser's store does, and remembers what it showed.
class RecordingPanelView final : public PanelView {
 public:
  boost::asio::awaitable<std::size_t> storeCookies(std::vector<std::string> setCookie, std::string url) override {
    cookieURL = url;
    for (const auto& header : setCookie) {
      const auto pair = header.substr(0, header.find(';'));
      cookies[pair.substr(0, pair.find('='))] = pair.substr(pair.find('=') + 1);
    }
    co_return setCookie.size();
  }
  void load(const std::string& url) override { shown.push_back("load " + url); }
  void reload() override { shown.push_back("reload"); }
  void showSignIn(const std::optional<std::string>& reason) override {
    shown.push_back("sign in: " + reason.value_or("(first sign-in)"));
  }
  void showNotice(const std::optional<std::string>& heading, const std::string& text) override {
    shown.push_back("notice: " + heading.value_or("") + " / " + text);
  }

  std::map<std::string, std::string> cookies;
  std::string cookieURL;
  std::vector<std::string> shown;
};

class RecordingWindows final : public CompanionWindows {
 public:
  void showSetupWindow() override { shown.push_back("setup"); }
  std::shared_ptr<PanelView> openPanelWindow() override {
    shown.push_back("panel");
    return view;
  }
  void closePanelWindow() override { shown.push_back("panel closed"); }

  std::shared_ptr<RecordingPanelView> view = std::make_shared<RecordingPanelView>();
  std::vector<std::string> shown;
};

class ScriptedLoginItem final : public LoginItem {
 public:
  boost::asio::awaitable<bool> ask(LoginQuestion question) override {
    asked.push_back(question);
    co_return true;
  }
  std::optional<std::string> registerMainApplication() override { return "the login items are locked"; }
  bool isRegistered() override { return false; }
  void tell(const std::string& sentence) override { told.push_back(sentence); }

  std::vector<LoginQuestion> asked;
  std::vector<std::string> told;
};

// A coordinator in this process with windows, signed in to devbrain unless a test signs it out.
class PanelSessionAgainstDevBrain : public ::testing::Test {
 protected:
  PanelSessionAgainstDevBrain() : admin_(brain_) {
    defaults_->write(keys::baseURL, json::value(brain_.baseURL()));
    testing::signedInCompanion(brain_, admin_, io_, clock_, defaults_, keychain_, host_, "");
    deviceId_ = *defaults_->string(keys::deviceId);
    companion_ = make();
  }
  ~PanelSessionAgainstDevBrain() override { QuarlLog::install(nullptr); }

  std::shared_ptr<Companion> make() {
    return Companion::create(CompanionParts{io_.get_executor(), clock_, defaults_, keychain_,
                                            std::make_shared<BeastHttpTransport>(io_.get_executor()), host_,
                                            ClientIdentity{"linux", 1, "0.1.0", "test", "Linux"}, "", nullptr,
                                            std::nullopt, nullptr, windows_, loginItem_});
  }
  void openPanel() { testing::runAwaitable(io_, companion_->openPanelWindow("/app")); }
  void fault(int status, int times = 1) {
    admin_.post("/admin/faults", {{"path", "/api/auth/companion"}, {"status", status}, {"times", times}});
  }
  std::string lastShown() const { return windows_->view->shown.back(); }

  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::TemporaryDirectory config_;
  boost::asio::io_context io_;
  std::shared_ptr<SystemClock> clock_ = std::make_shared<SystemClock>();
  std::shared_ptr<testing::MemorySettingsStore> defaults_ = std::make_shared<testing::MemorySettingsStore>();
  std::shared_ptr<FileKeychain> keychain_ = std::make_shared<FileKeychain>(config_.path(), *clock_);
  std::shared_ptr<testing::FakeCompanionHost> host_ = std::make_shared<testing::FakeCompanionHost>(clock_);
  std::shared_ptr<RecordingWindows> windows_ = std::make_shared<RecordingWindows>();
  std::shared_ptr<ScriptedLoginItem> loginItem_ = std::make_shared<ScriptedLoginItem>();
  std::shared_ptr<testing::CapturingLogSink> log_ = testing::CapturingLogSink::installed();
  std::string deviceId_;
  std::shared_ptr<Companion> companion_;
};

TEST_F(PanelSessionAgainstDevBrain, EachAnswerOfTheServiceLeavesTheWindowSignedInOrSaysWhy) {
  companion_->showMainWindow();
  io_.restart();
  io_.run();
  const auto& view = *windows_->view;
  EXPECT_EQ(view.cookies.at("quarl_device"), deviceId_);
  EXPECT_EQ(view.cookieURL, brain_.baseURL()) << "the cookies are for the panel's site";
  EXPECT_EQ(lastShown(), "load " + brain_.baseURL() + "/app");
  EXPECT_THAT(log_->lines(), Contains("quarl: panel session established (2 cookie(s))"));
  const auto first = view.cookies.at("quarl_session");

  fault(429);
  openPanel();
  EXPECT_EQ(view.cookies.at("quarl_session"), first) << "a rate-limited window keeps the session it has";
  EXPECT_EQ(lastShown(), "load " + brain_.baseURL() + "/app");
  EXPECT_THAT(log_->lines(), Contains("quarl: panel session rate-limited, reusing the session already in this window"));

  // An access token the service no longer takes is renewed, and the panel signed in with the new one.
  admin_.post("/admin/access/expire");
  openPanel();
  EXPECT_EQ(admin_.refreshExchanges(), 1);
  EXPECT_NE(view.cookies.at("quarl_session"), first);
  EXPECT_EQ(lastShown(), "load " + brain_.baseURL() + "/app");

  fault(401, 2);
  openPanel();
  EXPECT_EQ(lastShown(), "sign in: This Mac's connection to Quarl has expired. Choose Sign in to reconnect it.");
  EXPECT_EQ(admin_.refreshExchanges(), 2) << "renewed once, then a sign-in";

  fault(500);
  openPanel();
  EXPECT_EQ(lastShown(), "notice:  / Quarl could not sign this window in just now. Everything else keeps working — try "
                         "opening it again in a moment.");
  EXPECT_THAT(log_->lines(), Contains("quarl: panel session refused (500)"));

  // A renewal the service failed is a refusal, not an expired connection, whatever it answered.
  for (const int renewal : {503, 429}) {
    fault(401);
    admin_.post("/admin/faults", {{"path", "/v1/auth/refresh"}, {"status", renewal}});
    openPanel();
    EXPECT_EQ(lastShown(), "notice:  / Quarl could not sign this window in just now. Everything else keeps working — "
                           "try opening it again in a moment.") << renewal;
  }
  EXPECT_EQ(log_->linesContaining("quarl: renewing for the panel failed — "), 2);
  EXPECT_EQ(log_->linesContaining("quarl: panel session refused (401)"), 2);

  admin_.post("/admin/faults", {{"path", "/api/auth/companion"}, {"drop", true}});
  openPanel();
  EXPECT_EQ(lastShown(), "notice: Quarl cannot reach the server / Your Mac keeps working and nothing is lost — messages "
                         "are captured and will sync when the connection returns. Close this window and open it again "
                         "to retry.");
  EXPECT_THAT(log_->lines(), Contains("quarl: panel session request failed"));
}

TEST_F(PanelSessionAgainstDevBrain, ALapsedSessionIsMintedAgainOnceThenTheOwnerIsAskedToSignIn) {
  openPanel();
  const auto first = windows_->view->cookies.at("quarl_session");
  testing::runAwaitable(io_, companion_->remintPanelSession());
  EXPECT_NE(windows_->view->cookies.at("quarl_session"), first);
  EXPECT_EQ(lastShown(), "reload");
  EXPECT_THAT(log_->lines(), Contains("quarl: re-minted the panel session — nobody had to sign in"));

  testing::runAwaitable(io_, companion_->remintPanelSession());
  EXPECT_EQ(lastShown(), "sign in: This Mac's connection to Quarl has expired. Choose Sign in to reconnect it.");
  EXPECT_THAT(log_->lines(), Contains("quarl: the panel session lapsed again after a re-mint — asking for a sign-in"));
  EXPECT_EQ(admin_.requestsTo("/api/auth/companion"), 2);

  // A window opened again may mint once more.
  openPanel();
  testing::runAwaitable(io_, companion_->remintPanelSession());
  EXPECT_EQ(lastShown(), "reload");
}

TEST_F(PanelSessionAgainstDevBrain, TheSignInButtonPairsOnceHowOftenItIsPressedAndTheLoginQuestionIsAskedOnce) {
  companion_->signOut();
  EXPECT_THAT(windows_->shown, ElementsAre("panel closed", "setup"));
  companion_ = make();
  companion_->showMainWindow();
  EXPECT_THAT(windows_->shown, ElementsAre("panel closed", "setup", "setup"));
  openPanel();
  EXPECT_EQ(lastShown(), "sign in: (first sign-in)");

  admin_.post("/admin/settings", {{"pairingIntervalSeconds", 1}});
  bool done = false;
  boost::asio::co_spawn(io_, companion_->signInFromPanel(), [&](std::exception_ptr) { done = true; });
  io_.restart();
  while (!companion_->pairingCode() && !done && io_.run_one() > 0) {}
  ASSERT_TRUE(companion_->pairingCode());
  EXPECT_EQ(std::count(windows_->view->shown.begin(), windows_->view->shown.end(), "sign in: (first sign-in)"), 2)
      << "the sign-in page is drawn again once the code to approve is known";
  bool second = false;
  boost::asio::co_spawn(io_, companion_->signInFromPanel(), [&](std::exception_ptr) { second = true; });
  while (!second && io_.run_one() > 0) {}
  ASSERT_TRUE(second);
  EXPECT_THAT(log_->lines(), Contains("quarl: pairing already running — ignoring a second panel sign-in press"));
  EXPECT_EQ(companion_->setupFacts().pairingCode, companion_->pairingCode());
  bool fromSetup = false;
  boost::asio::co_spawn(io_, companion_->signInFromSetup(), [&](std::exception_ptr, std::optional<std::string> failure) {
    fromSetup = true;
    EXPECT_EQ(failure, std::nullopt) << "a press in the setup window while pairing starts nothing and fails nothing";
  });
  while (!fromSetup && io_.run_one() > 0) {}
  admin_.post("/admin/pairings/approve", {{"userCode", *companion_->pairingCode()}});
  io_.restart();
  while (!done && io_.run_one() > 0) {}
  ASSERT_TRUE(done);
  // The login question was spawned beside the tick; it has run by now.
  io_.restart();
  io_.poll();

  EXPECT_EQ(admin_.requestsTo("/v1/devices/pair/start"), 1);
  EXPECT_EQ(log_->linesContaining("quarl: panel sign-in button pressed — starting pairing"), 1);
  EXPECT_EQ(log_->linesContaining("quarl: pairing from the panel succeeded — reloading the panel"), 1);
  EXPECT_EQ(lastShown(), "load " + brain_.baseURL() + "/app");
  EXPECT_TRUE(companion_->hasCredentials());

  ASSERT_EQ(loginItem_->asked.size(), 1u);
  EXPECT_EQ(loginItem_->asked[0].message, "Open Quarl when you log in?");
  EXPECT_EQ(loginItem_->asked[0].yes, "Yes, open it at login");
  EXPECT_THAT(log_->lines(), Contains("quarl: could not register as a login item: the login items are locked"));
  EXPECT_THAT(loginItem_->told, ElementsAre("Quarl could not add itself to your login items. You can add it in System "
                                            "Settings → General → Login Items."));
  testing::runAwaitable(io_, make()->offerToStartAtLogin());
  EXPECT_EQ(loginItem_->asked.size(), 1u) << "asked once, ever";
  EXPECT_THAT(log_->lines(), Not(Contains(HasSubstr("panel session refused"))));
}

TEST_F(PanelSessionAgainstDevBrain, TheModePickerNarrowsOnTheServiceAndOpensItsSettingsToWiden) {
  admin_.post("/admin/devices/mode", {{"deviceId", deviceId_}, {"mode", "auto"}});
  testing::runAwaitable(io_, companion_->heartbeat());
  ASSERT_EQ(companion_->status().mode, MacPermissionMode::automatic);
  const auto modePath = "/v1/mac/devices/" + deviceId_ + "/permissions/mode";

  EXPECT_EQ(testing::runAwaitable(io_, companion_->chooseMode(MacPermissionMode::autoRead)), std::nullopt);
  EXPECT_EQ(companion_->status().mode, MacPermissionMode::autoRead);
  EXPECT_EQ(testing::runAwaitable(io_, companion_->chooseMode(MacPermissionMode::autoRead)), std::nullopt);
  EXPECT_EQ(admin_.requestsTo(modePath), 1) << "the mode already held is not set again";

  EXPECT_EQ(testing::runAwaitable(io_, companion_->chooseMode(MacPermissionMode::automatic)), std::nullopt);
  EXPECT_EQ(lastShown(), "load " + brain_.baseURL() + "/app/settings?mac=" + deviceId_ + "&mode=auto");
  EXPECT_EQ(admin_.requestsTo(modePath), 1) << "a wider mode is the owner's press on the service's page";
  EXPECT_EQ(companion_->status().mode, MacPermissionMode::autoRead);

  admin_.post("/admin/faults", {{"path", modePath}, {"status", 503}});
  EXPECT_EQ(testing::runAwaitable(io_, companion_->chooseMode(MacPermissionMode::ask)),
            "The service did not take the change, so this Mac's permission mode is unchanged.");
  EXPECT_THAT(log_->lines(), Contains("quarl: setting the permission mode failed — the service answered 503"));
  EXPECT_EQ(companion_->status().mode, MacPermissionMode::autoRead);

  const auto heartbeats = admin_.requestsTo("/v1/relay/heartbeat");
  ASSERT_TRUE(companion_->setKeepAwakeWhileWorking(true));
  io_.restart();
  io_.run();
  EXPECT_TRUE(companion_->status().keepAwake);
  EXPECT_EQ(admin_.requestsTo("/v1/relay/heartbeat"), heartbeats + 1) << "the service hears the choice at once";

  companion_->signOut();
  EXPECT_EQ(testing::runAwaitable(io_, companion_->chooseMode(MacPermissionMode::ask)),
            "Sign this Mac in to Quarl first: its permission mode is kept by the service.");
}

}  // namespace
}  // namespace quarl

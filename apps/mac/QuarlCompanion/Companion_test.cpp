#include "Companion.h"

#include <boost/asio/detached.hpp>
#include <boost/asio/use_future.hpp>
#include <gmock/gmock.h>

#include "../tests/support/CapturingLogSink.h"
#include "../tests/support/FakeCompanionHost.h"
#include "../tests/support/FakeWhatsAppPage.h"
#include "../tests/support/ManualClock.h"
#include "../tests/support/MemorySettingsStore.h"
#include "../tests/support/RunAwaitable.h"
#include "../tests/support/ScriptedTransport.h"
#include "../tests/support/TemporaryDirectory.h"
#include "SettingsKeys.h"
#include "platform/linux/Keychain_linux.h"

namespace quarl {
namespace {

namespace asio = boost::asio;
using namespace std::chrono_literals;

asio::awaitable<void> nothingMore() { co_return; }

struct RecordingNapHold final : NapHold {
  void hold(bool on) override { told.push_back(on); }
  std::vector<bool> told;
};

struct RecordingNotifications final : Notifications {
  void post(const std::string& title, const std::string& body) override { posted.push_back(title + ": " + body); }
  std::vector<std::string> posted;
};

class CompanionWithManualClock : public ::testing::Test {
 protected:
  ~CompanionWithManualClock() override { QuarlLog::install(nullptr); }
  std::shared_ptr<Companion> companion(std::shared_ptr<HttpTransport> transport = nullptr) {
    return Companion::create(CompanionParts{io_.get_executor(), clock_, defaults_, keychain_, transport ? transport : transport_,
                                            host_, ClientIdentity{"linux", 1, "0.1.0", "test", "Linux"}, "/nonexistent/chat.db",
                                            nullptr, std::nullopt, page_, nullptr, nullptr, napHold_, notifications_});
  }
  void signIn() {
    defaults_->write(keys::deviceId, "dev-1");
    keychain_->write(keys::accessTokenAccount, "access");
    keychain_->write(keys::refreshTokenAccount, "refresh");
  }
  // Runs whatever is ready; a loop that ran out of work must be restarted to run again.
  void runReady() { io_.restart(); io_.poll(); }
  void spawn(asio::awaitable<void> work) { asio::co_spawn(io_, std::move(work), asio::detached); runReady(); }
  // Moves time on in one-second steps, letting every coroutine that woke run after each.
  void pass(std::chrono::seconds total) {
    for (auto step = 0s; step < total; step += 1s) { clock_->advance(1s); runReady(); }
  }
  int linesContaining(const std::string& text) { return log_->linesContaining(text); }

  testing::TemporaryDirectory folder_;
  asio::io_context io_;
  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>(SystemTime(1700000000s));
  std::shared_ptr<testing::MemorySettingsStore> defaults_ = std::make_shared<testing::MemorySettingsStore>();
  std::shared_ptr<FileKeychain> keychain_ = std::make_shared<FileKeychain>(folder_.path(), *clock_);
  std::shared_ptr<testing::RefusingTransport> transport_ = std::make_shared<testing::RefusingTransport>();
  std::shared_ptr<testing::FakeCompanionHost> host_ = std::make_shared<testing::FakeCompanionHost>(clock_);
  std::shared_ptr<testing::FakeWhatsAppPage> page_ = std::make_shared<testing::FakeWhatsAppPage>();
  std::shared_ptr<RecordingNapHold> napHold_ = std::make_shared<RecordingNapHold>();
  std::shared_ptr<RecordingNotifications> notifications_ = std::make_shared<RecordingNotifications>();
  std::shared_ptr<testing::CapturingLogSink> log_ = testing::CapturingLogSink::installed();
};

TEST_F(CompanionWithManualClock, ALongTickGetsExactlyOneFurtherTickAndWhatTheStoreAllowsIsOffered) {
  host_->readDurations = {100s};
  auto coordinator = companion();
  coordinator->start();
  runReady();
  pass(99s);  // firings at 30, 60 and 90 s fall inside the first tick
  EXPECT_EQ(coordinator->ticksRun(), 1);
  EXPECT_EQ(linesContaining("tick asked for while one is still running — it will run next"), 3);
  pass(1s);  // the first tick ends; the one further tick runs at once
  EXPECT_EQ(coordinator->ticksRun(), 2);
  pass(20s);  // the next firing, at 120 s, finds no tick running
  EXPECT_EQ(coordinator->ticksRun(), 3);
  EXPECT_EQ(host_->storeReads, 3);

  // start() again replaces the timers: one set fires, not two.
  host_->reading = {true, std::nullopt};
  defaults_->write(keys::whatsappEnabled, true);
  page_->probeAnswer = R"({"state":"needsLink"})";
  coordinator->start();
  runReady();
  EXPECT_EQ(coordinator->ticksRun(), 4);
  EXPECT_EQ(coordinator->state().enabledChannels, (std::vector<std::string>{"imessage", "sms"}));
  EXPECT_THAT(coordinator->state().blockedReason.value_or(""), ::testing::StartsWith("WhatsApp is not being offered"));
  pass(30s);
  EXPECT_EQ(coordinator->ticksRun(), 5);
  EXPECT_EQ(coordinator->state().blockedReason, "WhatsApp is not being offered by this Mac: WhatsApp Web is showing its QR "
                                                "code, so the phone is not linked. Everything else on this Mac is unaffected.")
      << "the page loaded and read in one tick is what the next tick offers by";
  EXPECT_EQ(page_->loads.size(), 1u);
  EXPECT_GE(linesContaining("WhatsApp is not being offered by this Mac: WhatsApp Web is showing its QR code"), 1);
  page_->loads.push_back("about:blank");  // the first load never arrived
  pass(30s);
  EXPECT_EQ(page_->loads.size(), 2u) << "a later tick leaves re-loading to re-navigation";
}

TEST_F(CompanionWithManualClock, ASignOutLeavesARunningTickWithoutAClientAndDropsALateTokenRotation) {
  signIn();
  host_->readDurations = {10s};
  auto ticking = companion();
  ASSERT_TRUE(ticking->hasCredentials());
  spawn(ticking->guardedTick());
  ticking->signOut();
  pass(10s);
  EXPECT_FALSE(ticking->isTicking());
  EXPECT_TRUE(transport_->requests.empty());
  EXPECT_EQ(linesContaining("quarl: heartbeat skipped — no credentials loaded yet"), 1);
  EXPECT_FALSE(ticking->state().signIn.isSignedIn());

  // A rotation that ends after the sign-out is not written into the next session.
  signIn();
  auto service = std::make_shared<testing::ScriptedTransport>("https://api.quarl.app", clock_);
  service->answer("/v1/relay/heartbeat", 401, "{}");
  service->answer("/v1/auth/refresh", 200, R"({"accessToken":"late-access","refreshToken":"late-refresh"})", 5s);
  auto rotating = companion(service);
  spawn(rotating->heartbeat());
  rotating->signOut();
  pass(6s);
  EXPECT_FALSE(keychain_->read(keys::accessTokenAccount) || keychain_->read(keys::refreshTokenAccount));
  EXPECT_EQ(linesContaining("quarl: a token rotation of a session that has ended came late — dropped"), 1);
}

TEST_F(CompanionWithManualClock, NapIsHeldOffExactlyWhileSignedInAndOnlyARisingWaitingCountIsAnnounced) {
  auto service = std::make_shared<testing::ScriptedTransport>("https://api.quarl.app", clock_);
  for (const auto* waiting : {R"("needsYou":2)", R"("needsYou":1,"followUpCount":2)", R"("needsYou":1)", R"("needsYou":0)",
                              R"("needsYou":1)"}) {
    service->answer("/v1/relay/heartbeat", 200, std::string(R"({"channels":[],"waitingJobs":0,)") + waiting + "}");
  }
  signIn();
  auto coordinator = companion(service);
  for (int tick = 0; tick < 5; ++tick) testing::runAwaitable(io_, coordinator->guardedTick());
  coordinator->signOut();
  testing::runAwaitable(io_, coordinator->guardedTick());
  EXPECT_EQ(napHold_->told, (std::vector<bool>{true, true, true, true, true, false}));
  EXPECT_EQ(notifications_->posted, (std::vector<std::string>{"Quarl: 2 things are waiting for you in Quarl.",
                                                              "Quarl: 3 things are waiting for you in Quarl.",
                                                              "Quarl: 1 thing is waiting for you in Quarl."}))
      << "a count that falls says nothing; one that rises again after it does";
}

TEST_F(CompanionWithManualClock, ABurstOfStoreChangesRunsTheLivePassOnceAfterItSettles) {
  signIn();
  defaults_->write(keys::imessageChannelId, "ch-imessage");
  host_->reading = {true, std::nullopt};
  auto coordinator = companion();
  testing::runAwaitable(io_, coordinator->guardedTick());
  const auto failed = [&] { return linesContaining("quarl: live pass failed"); };
  const auto before = failed();
  for (int i = 0; i < 3; ++i) { coordinator->storeChanged(); runReady(); }
  EXPECT_EQ(failed(), before) << "not before the change settles";
  clock_->advance(Companion::storeSettle);
  for (int i = 0; i < 500 && failed() == before; ++i) {  // the store is read on a worker
    io_.restart();
    io_.run_for(10ms);
  }
  EXPECT_EQ(failed(), before + 1);
  clock_->advance(Companion::storeSettle);
  runReady();
  EXPECT_EQ(failed(), before + 1) << "the burst ran one pass";
}

TEST_F(CompanionWithManualClock, LinkingShowsEachCodeTheScreenRotatesToAndParksThePageWhenLinkedOrOutOfTime) {
  auto coordinator = companion();
  page_->probeAnswers = {R"({"state":"needsLink"})", R"({"state":"needsLink"})", R"({"state":"needsLink"})",
                         R"({"state":"syncing"})"};
  page_->linkCode = "2@first-code";
  std::vector<std::string> shown;
  auto linked = asio::co_spawn(io_, coordinator->linkWhatsApp(60s, [&](std::string code) {
                                 shown.push_back(code);
                                 return nothingMore();
                               }),
                               asio::use_future);
  runReady();
  pass(1s);
  page_->linkCode = "2@rotated-code";
  pass(3s);
  ASSERT_EQ(linked.wait_for(0s), std::future_status::ready);
  EXPECT_EQ(linked.get(), WhatsAppWeb::SessionState::linked());
  EXPECT_EQ(shown, (std::vector<std::string>{"2@first-code", "2@rotated-code"}));
  EXPECT_TRUE(coordinator->state().whatsappLinked);
  EXPECT_EQ(page_->presented.size(), 1u);
  EXPECT_EQ(page_->origin, (WhatsAppWeb::Point{-2100, -1800})) << "parked again once linked";
  EXPECT_TRUE(defaults_->boolean(keys::whatsappHostsSession).value_or(false));

  page_->probeAnswer = R"({"state":"needsLink"})";
  auto unanswered = asio::co_spawn(io_, coordinator->linkWhatsApp(5s, [](std::string) { return nothingMore(); }), asio::use_future);
  runReady();
  pass(5s);
  ASSERT_EQ(unanswered.wait_for(0s), std::future_status::ready);
  EXPECT_EQ(unanswered.get(), WhatsAppWeb::SessionState::needsLink());
  EXPECT_EQ(page_->origin, (WhatsAppWeb::Point{-2100, -1800})) << "a link left unfinished hides the window too";
}

}  // namespace
}  // namespace quarl

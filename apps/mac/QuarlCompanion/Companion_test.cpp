#include "Companion.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../tests/support/CapturingLogSink.h"
#include "../tests/support/FakeCompanionHost.h"
#include "../tests/support/ManualClock.h"
#include "../tests/support/MemorySettingsStore.h"
#include "../tests/support/RunAwaitable.h"
#include "../tests/support/ScriptedTransport.h"
#include "SettingsKeys.h"

namespace quarl {
namespace {

namespace asio = boost::asio;
using namespace std::chrono_literals;

class MemoryKeychain final : public Keychain {
 public:
  std::optional<std::string> read(std::string_view account) const override {
    const auto found = items_.find(std::string(account));
    return found == items_.end() ? std::nullopt : std::optional(found->second);
  }
  bool write(std::string_view account, std::string_view value) override {
    items_[std::string(account)] = value;
    return true;
  }
  bool remove(std::string_view account) override { return items_.erase(std::string(account)) > 0; }

 private:
  std::map<std::string, std::string> items_;
};

class CompanionWithManualClock : public ::testing::Test {
 protected:
  std::shared_ptr<Companion> companion(std::shared_ptr<HttpTransport> transport = nullptr) {
    if (!transport) transport = transport_;
    return Companion::create(CompanionParts{io_.get_executor(), clock_, defaults_, keychain_, transport, host_,
                                            ClientIdentity{"linux", 1, "0.1.0", "test", "Linux"}, "/nonexistent/chat.db"});
  }
  void signIn() {
    defaults_->write(keys::deviceId, "dev-1");
    keychain_->write(keys::accessTokenAccount, "access");
    keychain_->write(keys::refreshTokenAccount, "refresh");
  }
  // Runs whatever is ready; a loop that ran out of work must be restarted to run again.
  void runReady() {
    io_.restart();
    io_.poll();
  }
  // Moves time on in small steps, letting every coroutine that woke run after each.
  void pass(std::chrono::seconds total) {
    for (auto step = 0s; step < total; step += 1s) {
      clock_->advance(1s);
      runReady();
    }
  }
  int linesContaining(const std::string& text) {
    int count = 0;
    for (const auto& line : log_->lines()) count += line.find(text) != std::string::npos;
    return count;
  }

  asio::io_context io_;
  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>(SystemTime(1700000000s));
  std::shared_ptr<testing::MemorySettingsStore> defaults_ = std::make_shared<testing::MemorySettingsStore>();
  std::shared_ptr<MemoryKeychain> keychain_ = std::make_shared<MemoryKeychain>();
  std::shared_ptr<testing::RefusingTransport> transport_ = std::make_shared<testing::RefusingTransport>();
  std::shared_ptr<testing::FakeCompanionHost> host_ = std::make_shared<testing::FakeCompanionHost>(clock_);
  std::shared_ptr<testing::CapturingLogSink> log_ = testing::CapturingLogSink::installed();
};

TEST_F(CompanionWithManualClock, ALongTickGetsExactlyOneFurtherTickHoweverManyFiringsFallInsideIt) {
  host_->readDurations = {100s};
  auto coordinator = companion();
  coordinator->start();
  runReady();
  EXPECT_TRUE(coordinator->isTicking());

  pass(99s);  // firings at 30, 60 and 90 s fall inside the first tick
  EXPECT_EQ(coordinator->ticksRun(), 1);
  EXPECT_EQ(linesContaining("tick asked for while one is still running — it will run next"), 3);

  pass(1s);  // the first tick ends; the one further tick runs at once
  EXPECT_EQ(coordinator->ticksRun(), 2);
  EXPECT_FALSE(coordinator->isTicking());

  pass(20s);  // the next firing, at 120 s, finds no tick running
  EXPECT_EQ(coordinator->ticksRun(), 3);
  EXPECT_EQ(host_->storeReads, 3);

  // start() again replaces the timers: one set fires, not two.
  coordinator->start();
  runReady();
  EXPECT_EQ(coordinator->ticksRun(), 4);
  pass(30s);
  EXPECT_EQ(coordinator->ticksRun(), 5);
  QuarlLog::install(nullptr);
}

TEST_F(CompanionWithManualClock, SigningOutDuringATickLeavesTheLaterStagesWithoutAClient) {
  signIn();
  host_->readDurations = {10s};
  auto coordinator = companion();
  ASSERT_TRUE(coordinator->hasCredentials());
  asio::co_spawn(io_, coordinator->guardedTick(), asio::detached);
  runReady();
  coordinator->signOut();
  pass(10s);

  EXPECT_FALSE(coordinator->isTicking());
  EXPECT_TRUE(transport_->requests.empty());
  EXPECT_EQ(linesContaining("quarl: heartbeat skipped — no credentials loaded yet"), 1);
  EXPECT_EQ(keychain_->read(keys::accessTokenAccount), std::nullopt);
  EXPECT_EQ(defaults_->string(keys::deviceId), std::nullopt);
  EXPECT_FALSE(coordinator->state().signIn.isSignedIn());
  QuarlLog::install(nullptr);
}

TEST_F(CompanionWithManualClock, ARotationThatEndsAfterASignOutIsNotWrittenIntoTheNextSession) {
  signIn();
  auto service = std::make_shared<testing::ScriptedTransport>("https://api.quarl.app", clock_);
  service->answer("/v1/relay/heartbeat", 401, "{}");
  service->answer("/v1/auth/refresh", 200, R"({"accessToken":"late-access","refreshToken":"late-refresh"})", 5s);
  auto coordinator = companion(service);
  asio::co_spawn(io_, coordinator->heartbeat(), asio::detached);
  runReady();
  coordinator->signOut();
  pass(6s);
  EXPECT_EQ(keychain_->read(keys::accessTokenAccount), std::nullopt);
  EXPECT_EQ(keychain_->read(keys::refreshTokenAccount), std::nullopt);
  EXPECT_EQ(linesContaining("quarl: a token rotation of a session that has ended came late — dropped"), 1);
  QuarlLog::install(nullptr);
}

TEST_F(CompanionWithManualClock, AStoreThatCannotBeReadBlocksWithTheFullDiskAccessSentence) {
  auto coordinator = companion();
  asio::co_spawn(io_, coordinator->guardedTick(), asio::detached);
  runReady();
  EXPECT_FALSE(coordinator->state().canReadMessages);
  EXPECT_EQ(coordinator->state().blockedReason,
            "Quarl needs Full Disk Access to read Messages. System Settings → Privacy & Security → Full Disk Access.");
  EXPECT_TRUE(coordinator->state().enabledChannels.empty());

  host_->reading = {true, std::nullopt};
  host_->whatsapp = WhatsAppSettledState{WhatsAppSettledState::Kind::showingQrCode, ""};
  asio::co_spawn(io_, coordinator->guardedTick(), asio::detached);
  runReady();
  EXPECT_TRUE(coordinator->state().canReadMessages);
  EXPECT_EQ(coordinator->state().enabledChannels, (std::vector<std::string>{"imessage", "sms"}));
  ASSERT_TRUE(coordinator->state().blockedReason);
  EXPECT_THAT(*coordinator->state().blockedReason, ::testing::StartsWith("WhatsApp is not being offered"));
  QuarlLog::install(nullptr);
}

TEST_F(CompanionWithManualClock, ABurstOfStoreChangesRunsTheLivePassOnceAfterItSettles) {
  signIn();
  defaults_->write(keys::imessageChannelId, "ch-imessage");
  host_->reading = {true, std::nullopt};
  auto coordinator = companion();
  testing::runAwaitable(io_, coordinator->guardedTick());
  ASSERT_TRUE(coordinator->state().canReadMessages);
  const auto failedBefore = linesContaining("quarl: live pass failed");

  coordinator->storeChanged();
  coordinator->storeChanged();
  runReady();
  coordinator->storeChanged();
  runReady();
  EXPECT_EQ(linesContaining("quarl: live pass failed"), failedBefore) << "not before the change settles";
  clock_->advance(Companion::storeSettle);
  for (int i = 0; i < 500 && linesContaining("quarl: live pass failed") == failedBefore; ++i) {
    io_.restart();
    io_.run_for(10ms);  // the store is read on a worker
  }
  EXPECT_EQ(linesContaining("quarl: live pass failed"), failedBefore + 1);
  clock_->advance(Companion::storeSettle);
  runReady();
  EXPECT_EQ(linesContaining("quarl: live pass failed"), failedBefore + 1) << "the burst ran one pass";
}

}  // namespace
}  // namespace quarl

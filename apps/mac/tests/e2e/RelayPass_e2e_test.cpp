#include <stdlib.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/CapturingLogSink.h"
#include "../support/DevBrainAdmin.h"
#include "../support/FakeCompanionHost.h"
#include "../support/ManualClock.h"
#include "../support/MemorySettingsStore.h"
#include "../support/MessagesStore.h"
#include "../support/TemporaryDirectory.h"
#include "Companion.h"
#include "SettingsKeys.h"
#include "platform/linux/Keychain_linux.h"

namespace quarl {
namespace {

namespace asio = boost::asio;
namespace json = boost::json;
using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::HasSubstr;

// A coordinator in this process on a manual clock, relaying through the Messages stand-in
// against devbrain: the waits of confirmation are the clock's, the child process and the store
// are real.
class RelayPassOnAManualClock : public ::testing::Test {
 protected:
  RelayPassOnAManualClock() : admin_(brain_) {
    {
      testing::MessagesStore store(storePath());
      store.chat("+15550001", "iMessage", {store.handle("+15550001")});
    }
    ::setenv("QUARL_OSASCRIPT", QUARL_STANDIN_PATH, 1);
    ::setenv("QUARL_STANDIN_STORE", storePath().c_str(), 1);
    ::setenv("QUARL_STANDIN_MODE", "unsent", 1);
    defaults_->write(keys::apiURL, json::value(brain_.baseURL()));
    const auto issued = admin_.post("/admin/devices");
    defaults_->write(keys::deviceId, issued.at("deviceId"));
    keychain_->write(keys::accessTokenAccount, issued.at("accessToken").as_string());
    keychain_->write(keys::refreshTokenAccount, issued.at("refreshToken").as_string());
    host_->reading = {true, std::nullopt};
    companion_ = Companion::create(CompanionParts{io_.get_executor(), clock_, defaults_, keychain_,
                                                  std::make_shared<BeastHttpTransport>(io_.get_executor()), host_,
                                                  ClientIdentity{"linux", 1, "0.1.0", "test", "Linux"}, storePath()});
  }
  ~RelayPassOnAManualClock() override {
    for (const char* name : {"QUARL_OSASCRIPT", "QUARL_STANDIN_STORE", "QUARL_STANDIN_MODE"}) ::unsetenv(name);
    QuarlLog::install(nullptr);
  }

  std::string storePath() const { return (folder_.path() / "chat.db").string(); }
  // Runs the loop until `done` holds; network and child processes take real time.
  void runUntil(const std::function<bool()>& done) {
    for (int i = 0; i < 1000 && !done(); ++i) {
      io_.restart();
      io_.run_for(10ms);
    }
    ASSERT_TRUE(done()) << ::testing::PrintToString(log_->lines());
  }

  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::TemporaryDirectory folder_;
  asio::io_context io_;
  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>(
      std::chrono::time_point_cast<SystemTime::duration>(std::chrono::system_clock::now() - 1s));
  std::shared_ptr<testing::MemorySettingsStore> defaults_ = std::make_shared<testing::MemorySettingsStore>();
  std::shared_ptr<FileKeychain> keychain_ = std::make_shared<FileKeychain>(folder_.path(), *clock_);
  std::shared_ptr<testing::FakeCompanionHost> host_ = std::make_shared<testing::FakeCompanionHost>(clock_);
  std::shared_ptr<testing::CapturingLogSink> log_ = testing::CapturingLogSink::installed();
  std::shared_ptr<Companion> companion_;
};

TEST_F(RelayPassOnAManualClock, PassesNeverOverlapAndAnUnmarkedSendIsWatchedForFortyFourSeconds) {
  const auto job = std::string(
      admin_.post("/admin/jobs", {{"channelKind", "imessage"}, {"conversationRef", "+15550001"}, {"body", "hello"}})
          .at("id")
          .as_string());
  asio::co_spawn(io_, companion_->guardedRelayPass(), asio::detached);
  runUntil([&] { return clock_->sleepsBegun() == 1; });  // sent, and waiting for the first look

  // The 3 s timer firing now finds the pass running and does nothing.
  asio::co_spawn(io_, companion_->guardedRelayPass(), asio::detached);
  io_.restart();
  io_.run_for(50ms);
  EXPECT_EQ(admin_.requestsTo("/v1/relay/jobs/claim"), 1);

  std::size_t sleeps = 1;
  for (const auto delay : {2s, 5s, 12s}) {
    clock_->advance(delay);
    ++sleeps;
    runUntil([&] { return clock_->sleepsBegun() == sleeps; });  // looked, saw a row not marked sent, waits again
  }
  EXPECT_TRUE(admin_.get("/admin/reports").as_array().empty()) << "not reported before the last look";
  clock_->advance(25s);
  runUntil([&] { return !admin_.get("/admin/reports").as_array().empty(); });
  EXPECT_EQ(admin_.get("/admin/reports").as_array().at(0).at("ok"), true);
  EXPECT_THAT(log_->lines(),
              Contains("quarl: relay: job " + job +
                       " reported sent WITHOUT CONFIRMATION — Messages had 1 row(s) and marked none of them sent or "
                       "failed "));
}

}  // namespace
}  // namespace quarl

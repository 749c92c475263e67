#include <algorithm>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <gmock/gmock.h>

#include "../support/CapturingLogSink.h"
#include "../support/DevBrainAdmin.h"
#include "../support/FakeCompanionHost.h"
#include "../support/MemorySettingsStore.h"
#include "../support/MessagesStore.h"
#include "../support/SignedInCompanion.h"
#include "Companion.h"
#include "SettingsKeys.h"
#include "platform/linux/Keychain_linux.h"
#include "../support/TemporaryDirectory.h"

namespace quarl {
namespace {

namespace json = boost::json;
using ::testing::Contains;
using ::testing::HasSubstr;

// A coordinator in this process whose Messages store reads as readable, against devbrain.
class HeartbeatAgainstDevBrain : public ::testing::Test {
 protected:
  HeartbeatAgainstDevBrain() : admin_(brain_) {
    companion_ = testing::signedInCompanion(brain_, admin_, io_, clock_, defaults_, keychain_, host_, storePath_.string());
  }
  ~HeartbeatAgainstDevBrain() override { QuarlLog::install(nullptr); }

  void tick() { testing::runAwaitable(io_, companion_->guardedTick()); }

  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::TemporaryDirectory config_;
  const std::filesystem::path storePath_ = config_.path() / "chat.db";  // no store unless a test makes one
  boost::asio::io_context io_;
  std::shared_ptr<SystemClock> clock_ = std::make_shared<SystemClock>();
  std::shared_ptr<testing::MemorySettingsStore> defaults_ = std::make_shared<testing::MemorySettingsStore>();
  std::shared_ptr<FileKeychain> keychain_ = std::make_shared<FileKeychain>(config_.path(), *clock_);
  std::shared_ptr<testing::FakeCompanionHost> host_ = std::make_shared<testing::FakeCompanionHost>(clock_);
  std::shared_ptr<testing::CapturingLogSink> log_ = testing::CapturingLogSink::installed();
  std::shared_ptr<Companion> companion_;
};

TEST_F(HeartbeatAgainstDevBrain, ChannelIdsAreLearnedOnceAndKeptThroughAnswersWithoutThemAndTheBadgeCountsWhatWaits) {
  admin_.post("/admin/settings", {{"connectedChannels", json::array{"imessage"}}});
  tick();
  EXPECT_EQ(admin_.lastBodyTo("/v1/relay/heartbeat").at("device").at("hardware"), "test machine");
  EXPECT_EQ(defaults_->string(keys::imessageChannelId), "ch-imessage");
  EXPECT_TRUE(companion_->state().lastHeartbeatAt);
  EXPECT_THAT(log_->lines(), Contains("quarl: advertising sms with no connected channel on this account — those messages "
                                      "are being dropped. Connect it in Settings. The account has no row at all for sms."));
  EXPECT_THAT(log_->lines(), Contains("quarl: heartbeat ok, advertising imessage, sms"));

  // The same ids again, an answer naming none, a failed heartbeat: only the second moves the badge.
  tick();
  admin_.post("/admin/faults", {{"path", "/v1/relay/heartbeat"}, {"status", 200},
                                {"body", R"({"channels":[],"waitingJobs":0,"needsYou":2,"followUpCount":1})"}});
  tick();
  admin_.post("/admin/faults", {{"path", "/v1/relay/heartbeat"}, {"status", 503}});
  tick();
  EXPECT_EQ(defaults_->string(keys::imessageChannelId), "ch-imessage");
  EXPECT_EQ(companion_->settings().imessageChannelId, "ch-imessage");
  EXPECT_EQ(companion_->state().unconnectedChannels, std::vector<std::string>{"sms"});
  EXPECT_EQ(host_->badges, (std::vector<std::optional<std::string>>{"3"}));
  const auto lines = log_->lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "quarl: learned channel ids for imessage"), 1);
  EXPECT_THAT(lines, Contains("quarl: heartbeat named no channel ids while advertising imessage, sms — leaving the "
                              "previous state alone rather than reporting every channel as dropped"));
  EXPECT_THAT(lines, Contains("quarl: dock badge none -> 3 (2 waiting, 1 follow-ups)"));
  EXPECT_THAT(lines, Contains(HasSubstr("quarl: sending the heartbeat failed — 503")));
}

// A late renewal makes the live pass and the tick's heartbeat, both refused, wait on one exchange.
TEST_F(HeartbeatAgainstDevBrain, StagesThatRunTogetherRenewARefusedSessionOnceAndKeepTheNewPair) {
  tick();
  EXPECT_EQ(companion_->state().summary(clock_->now()), "Signed in — no messages read yet");
  {
    testing::MessagesStore store(storePath_);
    store.message({.guid = "m1", .chat = store.chat("+1555", "iMessage"), .text = "hi",
                   .date = testing::appleNanoseconds(clock_->now() - std::chrono::minutes(1))});
  }
  const auto refreshBefore = keychain_->read(keys::refreshTokenAccount);
  admin_.post("/admin/access/expire");
  admin_.post("/admin/faults", {{"path", "/v1/auth/refresh"}, {"delayMs", 300}, {"pass", true}});
  boost::asio::co_spawn(io_, companion_->guardedTick(), boost::asio::detached);
  companion_->storeChanged();
  io_.restart();
  io_.run();
  EXPECT_EQ(admin_.get("/admin/stats").at("ingested"), 1);
  EXPECT_NE(keychain_->read(keys::refreshTokenAccount), refreshBefore);
  EXPECT_TRUE(companion_->state().lastCaptureAt);
  EXPECT_THAT(companion_->state().summary(clock_->now()), ::testing::StartsWith("Last read "))
      << "a pass that read messages is the last read";

  // The next tick signs with the renewed token, without another exchange.
  tick();
  EXPECT_EQ(admin_.refreshExchanges(), 1);
  EXPECT_EQ(admin_.lastBodyTo("/v1/relay/heartbeat").at("capture").at("read"), 1)
      << "the report of the last capture goes in the heartbeat";
}

}  // namespace
}  // namespace quarl

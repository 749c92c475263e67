#include "OperatorLink.h"

#include <boost/asio/io_context.hpp>
#include <gmock/gmock.h>

#include "../tests/support/CapturingLogSink.h"
#include "../tests/support/ManualClock.h"
#include "../tests/support/MemorySettingsStore.h"
#include "../tests/support/ScriptedTransport.h"
#include "Base64.h"

namespace quarl {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;
using ::testing::Contains;

const std::string base = "http://brain.test", next = "/v1/mac/operator/next",
                  result = "/v1/mac/operator/steps/s1/result", stopped = "/v1/mac/operator/runs/run-1/stopped";
const std::string step1 = R"({"kind":"step","runId":"run-1","stepId":"s1","liveRunId":"run-1",)"
                          R"("step":{"kind":"list_files","query":"tax"}})";

// A Mac with no stop keys, whose executor serves files only and finds one file for every search.
struct FakeMac final : OperatorBar, StopHotKey, KeepAwake, OperatorExecutor {
  void show(const std::string& runId, std::function<void()>) override { shownFor = runId; }
  void hide() override { shownFor.reset(); }
  bool isShown() const override { return shownFor.has_value(); }
  std::optional<std::string> registerKeys(std::function<void()>) override { return "no keys in this test"; }
  std::optional<std::string> hold() override { held = true; return std::nullopt; }
  void release() override { held = false; }
  bool declareUserActivity() override { return true; }
  bool serves(MacCapabilityClass klass) const override { return klass == MacCapabilityClass::files; }
  boost::asio::awaitable<OperatorStepOutcome> run(OperatorStepRequest, OperatorStepContext,
                                                  std::shared_ptr<BrainClient>) override {
    co_return OperatorStepOutcome{OperatorStepOutcome::FileList{json::array{json::object{{"name", "tax.pdf"}}}, false}};
  }
  std::optional<std::string> shownFor;
  bool held = false;
};

// The loop runs until the scripted service has nothing more to say, then waits for the clock to move.
class OperatorLinkOnAManualClock : public ::testing::Test {
 protected:
  OperatorLinkOnAManualClock() {
    const auto token = base64UrlEncode(R"({"alg":"none"})") + "." + base64UrlEncode(R"({"exp":4102444800})") + ".x";
    client_ = std::make_shared<BrainClient>(io_.get_executor(), base, ClientIdentity{},
                                            Credentials{token, "refresh", "dev-1"}, transport_, clock_,
                                            [](const std::string&, const std::string&) {});
    link_ = OperatorLink::create({io_.get_executor(), clock_, defaults_, {mac_, mac_, mac_, mac_},
                                  [this] { return caps_; }, [] { return 0.5; }});
  }

  void start() { link_->start([this] { return client_; }, [] { return true; }); runReady(); }
  void runReady() { io_.restart(); io_.poll(); }
  void pass(std::chrono::milliseconds by) { clock_->advance(by); runReady(); }
  // Moves the clock past the wait the loop is in now, and lets it go on; that wait.
  std::chrono::milliseconds passTheWait() { const auto wait = clock_->sleeps().back(); pass(wait); return wait; }

  std::shared_ptr<testing::CapturingLogSink> log_ = testing::CapturingLogSink::installed();
  boost::asio::io_context io_;
  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>(SystemTime(1'790'000'000s));
  std::shared_ptr<testing::ScriptedTransport> transport_ = std::make_shared<testing::ScriptedTransport>(base, clock_);
  std::shared_ptr<testing::MemorySettingsStore> defaults_ = std::make_shared<testing::MemorySettingsStore>();
  std::shared_ptr<FakeMac> mac_ = std::make_shared<FakeMac>();
  OperatorCaps caps_{.switchOn = true, .fullDiskAccess = CapabilityState::granted, .keepAwake = true};
  std::shared_ptr<BrainClient> client_;
  std::shared_ptr<OperatorLink> link_;
};

// Then four 500s, a 429 raised to 30 s, an answer resetting the count, a 404, and no answer at all.
TEST_F(OperatorLinkOnAManualClock, AnAnswerNoLongerNamingTheLiveRunEndsItAndFailedPollsBackOffByStatus) {
  transport_->answer(next, 200, step1);
  transport_->answer(result, 200, R"({"accepted":true})");
  transport_->answer(next, 200, R"({"kind":"idle","liveRunId":"run-1"})");
  transport_->answer(next, 200, R"({"kind":"idle"})");
  for (int i = 0; i < 4; ++i) transport_->answer(next, 500, R"({"code":"oops","message":"down"})");
  transport_->answer(next, 429, R"({"code":"slow_down","message":"too many"})");
  transport_->answer(next, 200, R"({"kind":"idle"})");
  transport_->answer(next, 404, R"({"code":"not_found","message":"no operator here"})");
  start();

  const auto idle = json::parse(R"({"wait":25,"can":["files"]})");
  const auto holding = json::parse(R"({"wait":25,"can":["files"],"holding":"run-1"})");
  EXPECT_EQ(transport_->bodiesTo(next), (std::vector<json::value>{idle, holding, holding, idle}))
      << "an idle answer naming the run keeps it live; one that does not ends it";
  EXPECT_EQ(transport_->bodiesTo(result).at(0),
            json::parse(R"({"outcome":"done","result":{"kind":"list_files","files":[{"name":"tax.pdf"}],"truncated":false}})"));
  EXPECT_FALSE(mac_->isShown());
  EXPECT_FALSE(mac_->held);
  EXPECT_FALSE(defaults_->read(OperatorStopLedger::key)) << "the service ended the run: nothing to report";

  std::vector<std::chrono::milliseconds> waits;
  for (int i = 0; i < 7; ++i) waits.push_back(passTheWait());
  EXPECT_EQ(waits, (std::vector<std::chrono::milliseconds>{1s, 2s, 4s, 8s, 30s, 60s, 2s}));
  EXPECT_THAT(log_->lines(), ::testing::IsSupersetOf({"operator keep awake run_live", "operator run ended by brain",
                                                       "operator poll failed, status 429"}));
}

// The step comes on a poll given up for a wake; its outcome is refused for its size.
TEST_F(OperatorLinkOnAManualClock, ALateStepIsAnsweredAndLostConditionsEndItsRunWhoseStopIsReported) {
  transport_->answer(next, 200, step1, 10s);
  transport_->answer(result, 413, R"({"code":"too_large","message":"too large"})");
  transport_->answer(result, 200, R"({"accepted":true})");
  transport_->answer(stopped, 500, "");
  transport_->answer(stopped, 200, "{}");
  start();
  link_->wake();
  runReady();
  EXPECT_EQ(transport_->bodiesTo(next).size(), 2u) << "the wake gave the first poll up";
  pass(10s);
  EXPECT_EQ(transport_->bodiesTo(result).at(1),
            (json::object{{"outcome", "failed"}, {"reason", OperatorLink::unsentSentence}}))
      << "the late step is answered, and an outcome refused for its size is answered failed";
  EXPECT_EQ(mac_->shownFor, "run-1");

  caps_.switchOn = false;
  passTheWait();
  EXPECT_FALSE(mac_->isShown());
  EXPECT_THAT(log_->lines(), Contains("operator run ended by conditions"));
  EXPECT_EQ(clock_->sleeps().back(), 15s) << "switched off, the link only looks again later";
  passTheWait();
  EXPECT_EQ(transport_->bodiesTo(stopped), std::vector<json::value>(2, json::parse(R"({"by":"conditions"})")))
      << "a stop the service did not take is reported again on a later turn";
  EXPECT_TRUE(defaults_->read(OperatorStopLedger::key)->as_array().at(0).at("reported").as_bool());
}

}  // namespace
}  // namespace quarl

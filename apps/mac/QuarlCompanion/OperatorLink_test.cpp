#include "OperatorLink.h"

#include <boost/asio/io_context.hpp>
#include <boost/json/serialize.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

constexpr std::string_view base = "http://brain.test";
constexpr std::string_view next = "/v1/mac/operator/next";

class FakeBar final : public OperatorBar {
 public:
  void show(const std::string& runId, std::function<void()> stop) override {
    shownFor = runId;
    onStop = std::move(stop);
  }
  void hide() override { shownFor.reset(); }
  bool isShown() const override { return shownFor.has_value(); }
  std::optional<std::string> shownFor;
  std::function<void()> onStop;
};

class NoHotKey final : public StopHotKey {
 public:
  std::optional<std::string> registerKeys(std::function<void()>) override { return "no keys in this test"; }
};

class FakeKeepAwake final : public KeepAwake {
 public:
  std::optional<std::string> hold() override {
    held = true;
    return std::nullopt;
  }
  void release() override { held = false; }
  bool declareUserActivity() override { return true; }
  bool held = false;
};

// Serves files, and finds one file for every search.
class FileLister final : public OperatorExecutor {
 public:
  bool serves(MacCapabilityClass klass) const override { return klass == MacCapabilityClass::files; }
  boost::asio::awaitable<OperatorStepOutcome> run(OperatorStepRequest, OperatorStepContext,
                                                  std::shared_ptr<BrainClient>) override {
    co_return OperatorStepOutcome{OperatorStepOutcome::FileList{json::array{json::object{{"name", "tax.pdf"}}}, false}};
  }
};

std::string stepAnswer(const std::string& runId, const std::string& stepId) {
  return json::serialize(json::object{{"kind", "step"},
                                      {"runId", runId},
                                      {"stepId", stepId},
                                      {"step", json::object{{"kind", "list_files"}, {"query", "tax"}}},
                                      {"liveRunId", runId}});
}

// The link against a scripted service on a manual clock: the loop runs until the script has
// nothing more to say, then waits out its backoff until the test moves the clock.
class OperatorLinkOnAManualClock : public ::testing::Test {
 protected:
  OperatorLinkOnAManualClock() {
    caps_.switchOn = true;
    caps_.fullDiskAccess = CapabilityState::granted;
    caps_.keepAwake = true;
    const auto token = base64UrlEncode(R"({"alg":"none"})") + "." + base64UrlEncode(R"({"exp":4102444800})") + ".x";
    client_ = std::make_shared<BrainClient>(io_.get_executor(), std::string(base), ClientIdentity{},
                                            Credentials{token, "refresh", "dev-1"}, transport_, clock_,
                                            [](const std::string&, const std::string&) {});
    link_ = OperatorLink::create(OperatorLinkParts{io_.get_executor(), clock_, defaults_,
                                                   OperatorParts{bar_, std::make_shared<NoHotKey>(), keepAwake_, steps_},
                                                   [this] { return caps_; }, [] { return 0.5; }});
  }

  void start() {
    link_->start([this] { return client_; }, [] { return true; });
    runReady();
  }
  void runReady() {
    io_.restart();
    io_.poll();
  }
  // Moves the clock past the wait the loop is in now, and lets it go on.
  std::chrono::milliseconds passTheWait() {
    const auto wait = clock_->sleeps().back();
    clock_->advance(wait);
    runReady();
    return wait;
  }
  void answer(std::string_view path, int status, std::string body, std::chrono::milliseconds after = 0ms) {
    transport_->answer(std::string(path), status, std::move(body), after);
  }

  std::shared_ptr<testing::CapturingLogSink> log_ = testing::CapturingLogSink::installed();
  boost::asio::io_context io_;
  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>(SystemTime(1'790'000'000s));
  std::shared_ptr<testing::ScriptedTransport> transport_ = std::make_shared<testing::ScriptedTransport>(std::string(base), clock_);
  std::shared_ptr<testing::MemorySettingsStore> defaults_ = std::make_shared<testing::MemorySettingsStore>();
  std::shared_ptr<FakeBar> bar_ = std::make_shared<FakeBar>();
  std::shared_ptr<FakeKeepAwake> keepAwake_ = std::make_shared<FakeKeepAwake>();
  std::shared_ptr<FileLister> steps_ = std::make_shared<FileLister>();
  OperatorCaps caps_;
  std::shared_ptr<BrainClient> client_;
  std::shared_ptr<OperatorLink> link_;
};

TEST_F(OperatorLinkOnAManualClock, AnAnswerThatNoLongerNamesTheLiveRunEndsItAsEndedByTheService) {
  answer(next, 200, stepAnswer("run-1", "s1"));
  answer("/v1/mac/operator/steps/s1/result", 200, R"({"accepted":true})");
  answer(next, 200, R"({"kind":"idle","liveRunId":"run-1"})");
  answer(next, 200, R"({"kind":"idle"})");
  start();

  const auto polls = transport_->bodiesTo(std::string(next));
  ASSERT_EQ(polls.size(), 4u);
  EXPECT_EQ(polls[0], json::parse(R"({"wait":25,"can":["files"]})"));
  EXPECT_EQ(polls[1].at("holding"), "run-1");
  EXPECT_EQ(polls[2].at("holding"), "run-1") << "an idle answer naming the run keeps it live";
  EXPECT_FALSE(polls[3].as_object().contains("holding"));
  EXPECT_EQ(transport_->bodiesTo("/v1/mac/operator/steps/s1/result").at(0),
            json::parse(R"({"outcome":"done","result":{"kind":"list_files","files":[{"name":"tax.pdf"}],"truncated":false}})"));

  EXPECT_EQ(link_->liveRunId(), std::nullopt);
  EXPECT_FALSE(bar_->isShown());
  EXPECT_FALSE(keepAwake_->held);
  EXPECT_THAT(log_->lines(), Contains("operator keep awake run_live"));
  EXPECT_THAT(log_->lines(), Contains("operator run ended by brain"));
  EXPECT_FALSE(defaults_->read(OperatorStopLedger::key)) << "the service ended the run: nothing to report";
}

TEST_F(OperatorLinkOnAManualClock, AStepThatComesOnAPollGivenUpForAWakeIsStillAnswered) {
  answer(next, 200, stepAnswer("run-1", "s1"), 10s);
  answer("/v1/mac/operator/steps/s1/result", 200, R"({"accepted":true})");
  start();
  link_->wake();
  runReady();
  EXPECT_EQ(transport_->bodiesTo(std::string(next)).size(), 2u) << "the wake gave the first poll up";
  clock_->advance(10s);
  runReady();
  EXPECT_EQ(transport_->bodiesTo("/v1/mac/operator/steps/s1/result").size(), 1u);
  EXPECT_EQ(bar_->shownFor, "run-1");
}

TEST_F(OperatorLinkOnAManualClock, FailedPollsBackOffByTheServicesAnswer) {
  for (int i = 0; i < 4; ++i) answer(next, 500, R"({"code":"oops","message":"down"})");
  answer(next, 429, R"({"code":"slow_down","message":"too many"})");
  answer(next, 200, R"({"kind":"idle"})");
  answer(next, 404, R"({"code":"not_found","message":"no operator here"})");
  start();

  std::vector<std::chrono::milliseconds> waits;
  for (int i = 0; i < 7; ++i) waits.push_back(passTheWait());
  // Four 500s, a 429 raised to 30 s, an answer that resets the count, a 404 (the first failure
  // since), then no answer at all (the second).
  EXPECT_EQ(waits, (std::vector<std::chrono::milliseconds>{1s, 2s, 4s, 8s, 30s, 60s, 2s}));
  EXPECT_THAT(log_->lines(), Contains("operator poll failed, status 429"));
}

TEST_F(OperatorLinkOnAManualClock, LostConditionsEndTheRunWhoseStopIsReportedAndAnOutcomeRefusedForItsSizeIsAnsweredFailed) {
  answer(next, 200, stepAnswer("run-1", "s1"));
  answer("/v1/mac/operator/steps/s1/result", 413, R"({"code":"too_large","message":"too large"})");
  answer("/v1/mac/operator/steps/s1/result", 200, R"({"accepted":true})");
  answer("/v1/mac/operator/runs/run-1/stopped", 500, "");
  answer("/v1/mac/operator/runs/run-1/stopped", 200, "{}");
  start();
  EXPECT_EQ(transport_->bodiesTo("/v1/mac/operator/steps/s1/result").at(1),
            (json::object{{"outcome", "failed"}, {"reason", OperatorLink::unsentSentence}}));
  EXPECT_EQ(bar_->shownFor, "run-1");

  caps_.switchOn = false;
  passTheWait();
  EXPECT_EQ(link_->liveRunId(), std::nullopt);
  EXPECT_FALSE(bar_->isShown());
  EXPECT_THAT(log_->lines(), Contains("operator run ended by conditions"));
  EXPECT_EQ(clock_->sleeps().back(), 15s) << "switched off, the link only looks again later";
  passTheWait();
  EXPECT_EQ(transport_->bodiesTo("/v1/mac/operator/runs/run-1/stopped"),
            (std::vector<json::value>{json::parse(R"({"by":"conditions"})"), json::parse(R"({"by":"conditions"})")}))
      << "a stop the service did not take is reported again on a later turn";
  EXPECT_TRUE(defaults_->read(OperatorStopLedger::key)->as_array().at(0).at("reported").as_bool());
}

}  // namespace
}  // namespace quarl

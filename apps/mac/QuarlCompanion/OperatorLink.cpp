#include "OperatorLink.h"

#include "ActPolicy.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>

#include "OperatorBackoff.h"
#include "PollRace.h"
#include "QuarlLog.h"

namespace quarl {
namespace asio = boost::asio;
using namespace std::chrono;

namespace {

// A step's outcome as sent, so that a refusal reads the same in the log and on the wire.
OperatorStepOutcome refused(std::string_view sentence) {
  return OperatorStepOutcome{OperatorStepOutcome::Refused{OperatorStepOutcome::fit(sentence)}};
}

bool isRefusal(const OperatorStepOutcome& outcome, std::string_view sentence) {
  const auto* refusal = std::get_if<OperatorStepOutcome::Refused>(&outcome.value);
  return refusal && refusal->sentence == sentence;
}

std::optional<int> statusOf(const BrainClientFailure& failure) {
  if (const auto* http = failure.asHttp()) return http->status;
  return std::nullopt;
}

// Looking and acting need a lit display; files do not.
bool needsDisplay(MacCapabilityClass klass) { return klass != MacCapabilityClass::files; }

asio::awaitable<void> waitUntil(const Clock& clock, SystemTime deadline, std::function<bool()> done) {
  while (!done() && clock.now() < deadline) co_await clock.sleep(milliseconds(20));
}

}  // namespace

std::shared_ptr<OperatorLink> OperatorLink::create(OperatorLinkParts parts) {
  return std::shared_ptr<OperatorLink>(new OperatorLink(std::move(parts)));
}

// Runs the owner stopped before a restart stay stopped: a late step of one is refused.
OperatorLink::OperatorLink(OperatorLinkParts parts)
    : parts_(std::move(parts)),
      ledger_(parts_.defaults),
      wake_(std::make_shared<OperatorWakeSignal>(parts_.executor, parts_.clock)) {
  for (const auto& runId : ledger_.stoppedRunIds()) {
    session_.begin(runId);
    session_.stop();
  }
}

void OperatorLink::start(ClientProvider client, SignedIn signedIn) {
  if (started_) return;
  started_ = true;
  client_ = std::move(client);
  signedIn_ = std::move(signedIn);
  const std::weak_ptr<OperatorLink> weak = weak_from_this();
  if (auto refusal = parts_.platform.hotKey->registerKeys([weak] {
        if (auto self = weak.lock()) self->stop(OperatorEndCode::hotkey);
      })) {
    QuarlLog::say("quarl: no stop keys for the operator — " + *refusal);
  }
  asio::co_spawn(parts_.executor, loop(shared_from_this()), asio::detached);
}

asio::awaitable<void> OperatorLink::loop(std::shared_ptr<OperatorLink> self) {
  while (!self->finished_) {
    const auto wait = co_await self->turn();
    if (self->finished_) break;
    if (wait > milliseconds(0)) co_await PollRace::pause(*self->wake_, wait);
  }
}

asio::awaitable<milliseconds> OperatorLink::turn() {
  const auto caps = parts_.caps();
  holdAwake(caps.keepAwake);
  const bool signedIn = signedIn_();
  noteReadiness(caps, signedIn);
  const auto conditions = OperatorSession::Conditions::from(caps, signedIn);
  if ((!conditions.switchOn || !conditions.signedIn) && session_.liveRunId()) stop(OperatorEndCode::conditions);

  auto client = client_();
  if (client) co_await reportStops(*client);
  if (client && !lateAnswers_.empty()) {
    auto late = std::move(lateAnswers_.front());
    lateAnswers_.pop_front();
    co_await handleAnswer(std::move(late), client);
    co_return milliseconds(0);
  }
  if (!client || !OperatorSession::mayPoll(conditions)) co_return duration_cast<milliseconds>(idleWait);

  auto can = advertised(conditions);
  auto holding = session_.liveRunId();
  auto poll = client->nextOperatorStep(pollWaitSeconds, std::move(holding), std::move(can));
  auto raced = co_await PollRace::run(std::move(poll), *wake_, duration_cast<milliseconds>(raceLimit), lateAnswerKeeper());
  if (raced.winner != PollRace::Winner::poll) co_return milliseconds(0);

  auto& answer = *raced.answer;
  if (!answer) {
    ++failures_;
    const auto status = statusOf(answer.error());
    if (status) {
      QuarlLog::operatorPollFailed(*status);
    } else {
      QuarlLog::say("quarl: operator poll failed — " + answer.error().description());
    }
    const auto seconds = OperatorBackoff::delay(failures_, status, parts_.random());
    co_return duration_cast<milliseconds>(duration<double>(seconds));
  }
  failures_ = 0;
  co_await handleAnswer(std::move(*answer), client);
  co_return milliseconds(0);
}

// A poll given up for a wake may still be answered with a step or a stop, which the service
// then counts as delivered: it is kept for the next turn rather than dropped, so that the
// service is not left waiting. Admission then weighs it like any other step.
std::function<void(BrainClient::Result<OperatorNextAnswer>)> OperatorLink::lateAnswerKeeper() {
  const std::weak_ptr<OperatorLink> weak = weak_from_this();
  return [weak](BrainClient::Result<OperatorNextAnswer> late) {
    auto self = weak.lock();
    if (!self || !late || (late->kind != "step" && late->kind != "stop")) return;
    QuarlLog::say("quarl: an operator " + late->kind + " came on a poll already given up — it is handled now");
    self->lateAnswers_.push_back(std::move(*late));
    self->wake();
  };
}

asio::awaitable<void> OperatorLink::handleAnswer(OperatorNextAnswer answer, std::shared_ptr<BrainClient> client) {
  if (answer.kind == "step") {
    co_await handleStep(std::move(answer), std::move(client));
  } else if (answer.kind == "stop") {
    if (answer.runId) endedByBrain(*answer.runId);
  } else if (const auto live = session_.liveRunId(); live && answer.liveRunId != live) {
    // The service no longer holds the run this Mac thinks is live: it has forgotten it.
    endedByBrain(*live);
  }
}

asio::awaitable<void> OperatorLink::handleStep(OperatorNextAnswer answer, std::shared_ptr<BrainClient> client) {
  if (!answer.stepId) {
    QuarlLog::say("quarl: the service sent an operator step without a step id — nothing can answer it, so it did not run");
    co_return;
  }
  const auto stepId = *answer.stepId;
  const auto began = parts_.clock->now();
  std::optional<OperatorStepRequest> request;
  if (answer.runId && answer.step && answer.step->is_object()) request = OperatorStepRequest::parse(answer.step->get_object());

  OperatorStepOutcome outcome = refused(notUnderstoodSentence);
  const auto runId = answer.runId;
  const bool admitted = request && !session_.isStopped(*runId);
  if (request) outcome = co_await carryOut(std::move(*request), std::move(answer), client);

  const auto took = duration_cast<milliseconds>(parts_.clock->now() - began).count();
  QuarlLog::operatorStep(outcome.code(), took);
  // A run the owner stopped while its step was under way is over for the service too: the stop
  // report tells it, and nothing of what the step did goes out.
  if (admitted && session_.isStopped(*runId)) {
    QuarlLog::say("quarl: operator step " + stepId + " ended with its run, which the owner stopped — its outcome is not sent");
    co_return;
  }
  co_await postOutcome(stepId, outcome, *client);
  if (isRefusal(outcome, OperatorSession::notOperableSentence)) stop(OperatorEndCode::conditions);
}

asio::awaitable<OperatorStepOutcome> OperatorLink::carryOut(OperatorStepRequest request, OperatorNextAnswer answer,
                                                            std::shared_ptr<BrainClient> client) {
  const auto& runId = *answer.runId;
  if (session_.liveRunId() != runId && session_.begin(runId)) raiseBar(runId);
  const auto klass = request.klass();
  co_await wakeDisplayIfNeeded(klass);
  if (auto refusal = session_.admit(runId, klass, parts_.platform.bar->isShown(), conditionsNow())) {
    co_return refused(*refusal);
  }
  const std::weak_ptr<OperatorLink> weak = weak_from_this();
  OperatorStepContext context{runId,          *answer.stepId,         answer.step->get_object(), std::move(answer.permit),
                              answer.ordinal, answer.answerWithinMs, std::move(answer.pressed),
                              [weak, runId] {
                                auto self = weak.lock();
                                return !self || self->session_.liveRunId() != runId;
                              }};
  // A press answers one held step: one that came with another step is refused, never taken as
  // the owner's word for this one.
  if (context.pressed && !context.ownerPressed()) co_return refused(ActPolicy::otherPressSentence);
  co_return co_await parts_.platform.steps->run(std::move(request), std::move(context), std::move(client));
}

asio::awaitable<void> OperatorLink::postOutcome(const std::string& stepId, const OperatorStepOutcome& outcome,
                                                BrainClient& client) {
  auto wire = outcome.wire();
  auto posted = co_await client.postOperatorResult(stepId, std::move(wire));
  if (posted) {
    if (!*posted) QuarlLog::say("quarl: the service did not accept the outcome of operator step " + stepId);
    co_return;
  }
  const auto status = statusOf(posted.error());
  if (status != 400 && status != 413) {
    QuarlLog::say("quarl: the outcome of operator step " + stepId + " could not be sent — " + posted.error().description());
    co_return;
  }
  QuarlLog::say("quarl: the service would not take the outcome of operator step " + stepId + " (status " +
                std::to_string(*status) + ") — telling it the step did not finish instead");
  auto failed = OperatorStepOutcome{OperatorStepOutcome::Failed{std::string(unsentSentence)}}.wire();
  auto again = co_await client.postOperatorResult(stepId, std::move(failed));
  if (!again) {
    QuarlLog::say("quarl: operator step " + stepId + " could not be answered at all — " + again.error().description());
  }
}

asio::awaitable<void> OperatorLink::wakeDisplayIfNeeded(MacCapabilityClass klass) {
  if (!needsDisplay(klass)) co_return;
  const auto caps = parts_.caps();
  if (!caps.displaysAsleep || !caps.keepAwake) co_return;
  const bool declared = parts_.platform.keepAwake->declareUserActivity();
  co_await parts_.clock->sleep(displayWakePause);
  QuarlLog::operatorDisplayWake(declared, !parts_.caps().displaysAsleep);
}

std::optional<std::string> OperatorLink::stop(OperatorEndCode by) {
  auto was = session_.stop();
  if (!was) return std::nullopt;
  ledger_.record(*was, rawValue(by), parts_.clock->now());
  lowerBar();
  QuarlLog::operatorRunEnded(rawValue(by));
  refreshKeepAwake();
  wake();
  return was;
}

void OperatorLink::stopBecauseSwitchedOff() { stop(OperatorEndCode::conditions); }

void OperatorLink::endedByBrain(const std::string& runId) {
  if (session_.liveRunId() != runId) return;
  session_.ended(runId);
  lowerBar();
  QuarlLog::operatorRunEnded(rawValue(OperatorEndCode::brain));
  refreshKeepAwake();
}

asio::awaitable<void> OperatorLink::reportStops(BrainClient& client) {
  if (reporting_) co_return;
  reporting_ = true;
  for (const auto& entry : ledger_.unreported()) {
    const auto status = co_await client.reportRunStopped(entry.runId, entry.by);
    switch (stopReportOutcomeOf(status)) {
      case StopReportOutcome::reported:
        ledger_.markReported(entry.runId);
        QuarlLog::operatorStopReported("taken", status);
        break;
      case StopReportOutcome::final:
        ledger_.markReported(entry.runId);
        QuarlLog::operatorStopReported("refused for good, not tried again", status);
        break;
      case StopReportOutcome::retry:
        QuarlLog::operatorStopReported("not taken, kept to try again", status);
        break;
    }
  }
  reporting_ = false;
  ++reportRounds_;
}

asio::awaitable<void> OperatorLink::reportStopsDetached(std::shared_ptr<OperatorLink> self,
                                                        std::shared_ptr<BrainClient> client) {
  co_await self->reportStops(*client);
}

asio::awaitable<void> OperatorLink::finish(milliseconds bound) {
  finished_ = true;
  stop(OperatorEndCode::quit);
  auto client = client_ ? client_() : nullptr;
  if (!client || ledger_.unreported().empty()) co_return;
  const auto deadline = parts_.clock->now() + bound;
  std::function<bool()> idle = [this] { return !reporting_; };
  co_await waitUntil(*parts_.clock, deadline, std::move(idle));  // reports a turn has in hand end first
  const auto rounds = reportRounds_;
  asio::co_spawn(parts_.executor, reportStopsDetached(shared_from_this(), client), asio::detached);
  std::function<bool()> reported = [this, rounds] { return reportRounds_ != rounds; };
  co_await waitUntil(*parts_.clock, deadline, std::move(reported));
}

void OperatorLink::refreshKeepAwake() { holdAwake(parts_.caps().keepAwake); }

void OperatorLink::holdAwake(bool allowed) {
  const auto live = session_.liveRunId();
  const bool wanted = live && allowed;
  if (wanted && !keptAwake_ && keepAwakeRefusedFor_ != live) {
    if (auto refusal = parts_.platform.keepAwake->hold()) {
      keepAwakeRefusedFor_ = live;
      QuarlLog::say("quarl: operator keep awake refused — " + *refusal);
    } else {
      keptAwake_ = true;
      QuarlLog::operatorKeepAwake("run_live");
    }
  } else if (!wanted && keptAwake_) {
    parts_.platform.keepAwake->release();
    keptAwake_ = false;
    QuarlLog::operatorKeepAwake("released");
  }
}

OperatorSession::Conditions OperatorLink::conditionsNow() {
  return OperatorSession::Conditions::from(parts_.caps(), signedIn_());
}

std::vector<std::string> OperatorLink::advertised(const OperatorSession::Conditions& conditions) const {
  const auto& steps = *parts_.platform.steps;
  return OperatorSession::can(conditions, [&steps](MacCapabilityClass klass) { return steps.serves(klass); });
}

void OperatorLink::raiseBar(const std::string& runId) {
  const std::weak_ptr<OperatorLink> weak = weak_from_this();
  parts_.platform.bar->show(runId, [weak] {
    if (auto self = weak.lock()) self->stop(OperatorEndCode::bar);
  });
}

void OperatorLink::lowerBar() { parts_.platform.bar->hide(); }

void OperatorLink::noteReadiness(const OperatorCaps& caps, bool signedIn) {
  const auto readiness = caps.readiness(signedIn);
  auto line = QuarlLog::operatorLine(readiness);
  if (line == readinessLine_) return;
  readinessLine_ = std::move(line);
  QuarlLog::operatorReadinessChanged(readiness);
}

}  // namespace quarl

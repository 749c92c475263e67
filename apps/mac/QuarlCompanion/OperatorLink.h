#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BrainClient.h"
#include "OperatorCaps.h"
#include "OperatorEndCode.h"
#include "OperatorExecutor.h"
#include "OperatorSession.h"
#include "OperatorStopLedger.h"
#include "OperatorWakeSignal.h"
#include "platform/KeepAwake.h"
#include "platform/OperatorBar.h"
#include "platform/StopHotKey.h"

namespace quarl {

// The Mac's side of operating it: the bar, the stop keys, keeping awake, and the executor of
// steps. Chosen once by the host; a host without them never operates.
struct OperatorParts {
  std::shared_ptr<OperatorBar> bar;
  std::shared_ptr<StopHotKey> hotKey;
  std::shared_ptr<KeepAwake> keepAwake;
  std::shared_ptr<OperatorExecutor> steps;
};

// What the link is built from.
struct OperatorLinkParts {
  boost::asio::any_io_executor executor;
  std::shared_ptr<const Clock> clock;
  std::shared_ptr<SettingsStore> defaults;  // where the stop ledger lives
  OperatorParts platform;
  std::function<OperatorCaps()> caps;       // what the Mac allows now, read each turn
  std::function<double()> random;           // uniform in [0, 1), for the backoff's jitter
};

// The loop of long polls through which the service operates this Mac: it polls for the next
// step, admits or refuses it, hands it to the executor and posts its outcome; it ends runs when
// the owner stops them or conditions are lost, and reports those stops until the service has
// them. Confined to the main executor; the session, the ledger and the wake signal it holds may
// be touched from any thread.
class OperatorLink : public std::enable_shared_from_this<OperatorLink> {
 public:
  using ClientProvider = std::function<std::shared_ptr<BrainClient>()>;
  using SignedIn = std::function<bool()>;

  static constexpr std::int64_t pollWaitSeconds = 25;
  static constexpr std::chrono::seconds raceLimit{30};
  static constexpr std::chrono::seconds idleWait{15};
  static constexpr std::chrono::milliseconds displayWakePause{200};
  static constexpr std::string_view notUnderstoodSentence = "This Mac does not know that step, so it did nothing.";
  static constexpr std::string_view unsentSentence =
      "Quarl could not send what it read on the Mac, so this step did not finish.";

  static std::shared_ptr<OperatorLink> create(OperatorLinkParts parts);

  // Registers the stop keys and starts the loop of turns; once.
  void start(ClientProvider client, SignedIn signedIn);
  // One turn of the loop: how long to wait before the next.
  boost::asio::awaitable<std::chrono::milliseconds> turn();

  std::optional<std::string> liveRunId() const { return session_.liveRunId(); }
  // The owner stopped the run (bar, menu, stop keys): it ends here at once, and the next turn
  // reports it. The run that was live, if any.
  std::optional<std::string> stop(OperatorEndCode by);
  // The owner switched operator mode off.
  void stopBecauseSwitchedOff();
  // Ends the turn's wait or poll, so that a change is acted on now.
  void wake() { wake_->signal(); }
  // The companion is quitting: ends the live run with "quit", stops the loop and gives the stop
  // reports up to `bound` to reach the service. What they do not report waits in the ledger.
  boost::asio::awaitable<void> finish(std::chrono::milliseconds bound);

  // Holds the Mac awake while a run is live and the owner allows it; lets go otherwise.
  void refreshKeepAwake();

 private:
  explicit OperatorLink(OperatorLinkParts parts);

  static boost::asio::awaitable<void> loop(std::shared_ptr<OperatorLink> self);
  static boost::asio::awaitable<void> reportStopsDetached(std::shared_ptr<OperatorLink> self,
                                                          std::shared_ptr<BrainClient> client);

  std::function<void(BrainClient::Result<OperatorNextAnswer>)> lateAnswerKeeper();
  OperatorSession::Conditions conditionsNow();
  std::vector<std::string> advertised(const OperatorSession::Conditions& conditions) const;
  boost::asio::awaitable<void> handleAnswer(OperatorNextAnswer answer, std::shared_ptr<BrainClient> client);
  boost::asio::awaitable<void> handleStep(OperatorNextAnswer answer, std::shared_ptr<BrainClient> client);
  boost::asio::awaitable<OperatorStepOutcome> carryOut(OperatorStepRequest request, OperatorNextAnswer answer,
                                                       std::shared_ptr<BrainClient> client);
  boost::asio::awaitable<void> postOutcome(const std::string& stepId, const OperatorStepOutcome& outcome,
                                           BrainClient& client);
  boost::asio::awaitable<void> wakeDisplayIfNeeded(MacCapabilityClass klass);
  boost::asio::awaitable<void> reportStops(BrainClient& client);
  void endedByBrain(const std::string& runId);
  void raiseBar(const std::string& runId);
  void lowerBar();
  void noteReadiness(const OperatorCaps& caps, bool signedIn);
  // refreshKeepAwake with the owner's choice already read.
  void holdAwake(bool allowed);

  OperatorLinkParts parts_;
  OperatorSession session_;
  OperatorStopLedger ledger_;
  std::shared_ptr<OperatorWakeSignal> wake_;
  ClientProvider client_;
  SignedIn signedIn_;
  std::deque<OperatorNextAnswer> lateAnswers_;  // steps and stops that came on polls given up
  int failures_ = 0;
  bool started_ = false;
  bool finished_ = false;
  bool reporting_ = false;
  std::uint64_t reportRounds_ = 0;  // reports run to their end
  bool keptAwake_ = false;
  std::optional<std::string> keepAwakeRefusedFor_;  // the run whose hold was refused, told once
  std::optional<std::string> readinessLine_;
};

}  // namespace quarl

#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/json/value.hpp>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "BrainClient.h"
#include "MacCapabilityClass.h"
#include "OperatorPress.h"
#include "OperatorStepOutcome.h"
#include "OperatorStepRequest.h"

namespace quarl {

// What came with a step besides the step itself, carried into the executor as the service sent
// it: the permit is read by the permission rules, the press by the consequential-act rules.
struct OperatorStepContext {
  std::string runId;
  std::string stepId;
  boost::json::object step;  // as the service sent it: what a press approves
  std::optional<boost::json::value> permit;
  std::optional<std::int64_t> ordinal;
  std::optional<std::int64_t> answerWithinMs;
  std::optional<boost::json::value> pressed;
  // True once this step's run is no longer live (the owner stopped it, or the service ended it):
  // long work, such as a file transfer, ends at its next piece.
  std::function<bool()> stopped = [] { return false; };

  // Whether the owner pressed this very step of this run on a screen, which lifts its hold.
  bool ownerPressed() const { return OperatorPress::approves(pressed, runId, step); }
};

// Carries out admitted steps: looking, acting and files. Runs on the main executor.
class OperatorExecutor {
 public:
  virtual ~OperatorExecutor() = default;
  // Whether it can carry out steps of `klass` at all; the classes it cannot are not advertised.
  virtual bool serves(MacCapabilityClass klass) const = 0;
  virtual boost::asio::awaitable<OperatorStepOutcome> run(OperatorStepRequest request, OperatorStepContext context,
                                                          std::shared_ptr<BrainClient> client) = 0;
};

}  // namespace quarl

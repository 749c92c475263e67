#pragma once

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <boost/json/value_to.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quarl {

// The answer to an operator poll: "step", "stop", or any other kind, which means nothing is to
// be done now. The step and the permit stay JSON: the step is read strictly by the operator,
// which answers a step it cannot read, so a step or run id of the wrong kind is kept or left
// out here rather than failing the whole answer and leaving the step unanswered.
struct OperatorNextAnswer {
  std::string kind;
  std::optional<std::string> runId;
  std::optional<boost::json::value> step;
  std::optional<boost::json::value> permit;
  std::optional<std::string> stepId;
  std::optional<std::int64_t> ordinal;
  std::optional<std::string> liveRunId;
  std::optional<std::int64_t> answerWithinMs;
  std::optional<std::string> reason;
  std::optional<boost::json::value> pressed;
};

// {"wait", "holding" (left out when no run is live), "can"}.
boost::json::object nextOperatorStepBody(std::int64_t wait, const std::optional<std::string>& holding,
                                         const std::vector<std::string>& can);

OperatorNextAnswer tag_invoke(boost::json::value_to_tag<OperatorNextAnswer>, const boost::json::value& value);

}  // namespace quarl

#include "OperatorRecords.h"

#include "JsonFields.h"

namespace quarl {
namespace json = boost::json;

json::object nextOperatorStepBody(std::int64_t wait, const std::optional<std::string>& holding,
                                  const std::vector<std::string>& can) {
  json::array classes;
  for (const auto& name : can) classes.emplace_back(name);
  json::object body{{"wait", wait}, {"can", std::move(classes)}};
  if (holding) body["holding"] = *holding;
  return body;
}

OperatorNextAnswer tag_invoke(json::value_to_tag<OperatorNextAnswer>, const json::value& value) {
  const auto& object = value.as_object();
  OperatorNextAnswer answer;
  answer.kind = json::value_to<std::string>(object.at("kind"));
  answer.runId = textField(object, "runId");
  if (const auto* step = object.if_contains("step"); step && !step->is_null()) answer.step = *step;
  if (const auto* permit = object.if_contains("permit"); permit && !permit->is_null()) answer.permit = *permit;
  // Optional fields of the wrong type are left out, never the whole answer: a step whose own
  // fields are wrong is then answered as one the Mac does not know.
  answer.stepId = textField(object, "stepId");
  answer.ordinal = integerField(object, "ordinal");
  answer.liveRunId = textField(object, "liveRunId");
  answer.answerWithinMs = integerField(object, "answerWithinMs");
  answer.reason = textField(object, "reason");
  if (const auto* pressed = object.if_contains("pressed"); pressed && !pressed->is_null()) answer.pressed = *pressed;
  return answer;
}

}  // namespace quarl

#include "OperatorRecords.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

namespace quarl {
namespace {

namespace json = boost::json;

TEST(OperatorRecords, APollAnswerKeepsTheStepAndPermitAsJson) {
  const auto step = json::value_to<OperatorNextAnswer>(json::parse(R"({"kind":"step","runId":"r1","stepId":"s1",
      "step":{"kind":"look"},"permit":{"mode":"ask"},"ordinal":3,"answerWithinMs":5000,"pressed":null})"));
  EXPECT_EQ(step.kind, "step");
  EXPECT_EQ(step.runId, "r1");
  EXPECT_EQ(step.step, (json::object{{"kind", "look"}}));
  EXPECT_EQ(step.permit, json::parse(R"({"mode":"ask"})"));
  EXPECT_EQ(step.ordinal, 3);
  EXPECT_EQ(step.pressed, std::nullopt);
  const auto idle = json::value_to<OperatorNextAnswer>(json::parse(R"({"kind":"idle"})"));
  EXPECT_FALSE(json::try_value_to<OperatorNextAnswer>(json::parse(R"({"runId":"r1"})")));
  EXPECT_FALSE(json::try_value_to<OperatorNextAnswer>(json::parse(R"({"kind":"step","step":"look"})")));
}

}  // namespace
}  // namespace quarl

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
  EXPECT_FALSE(json::try_value_to<OperatorNextAnswer>(json::parse(R"({"runId":"r1"})")));

  // A step the Mac cannot read is still answered, so its answer must decode.
  const auto odd = json::try_value_to<OperatorNextAnswer>(json::parse(R"({"kind":"step","runId":7,"stepId":"s2","step":"look"})"));
  ASSERT_TRUE(odd);
  EXPECT_EQ(odd->step, json::value("look"));
  EXPECT_EQ(odd->runId, std::nullopt);
  const auto wrongOrdinal = json::try_value_to<OperatorNextAnswer>(
      json::parse(R"({"kind":"step","runId":"r1","stepId":"s3","step":{"kind":"look"},"ordinal":"3","reason":4})"));
  ASSERT_TRUE(wrongOrdinal) << "an optional field of the wrong type is left out";
  EXPECT_EQ(wrongOrdinal->ordinal, std::nullopt);
  EXPECT_EQ(wrongOrdinal->stepId, "s3");
}

}  // namespace
}  // namespace quarl

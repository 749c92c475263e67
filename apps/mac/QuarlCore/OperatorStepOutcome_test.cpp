#include "OperatorStepOutcome.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

namespace quarl {
namespace {

namespace json = boost::json;
using O = OperatorStepOutcome;

TEST(OperatorStepOutcome, TextsAreCutToTheirLimitsEveryCutIsToldAndActedCodesNameOnlyKnownKinds) {
  EXPECT_EQ(O::fit(std::string(300, 'a')), std::string(300, 'a'));
  EXPECT_EQ(O::fit(std::string(400, 'a')), std::string(297, 'a') + "...");
  EXPECT_EQ((O{O::Refused{std::string(400, 'r')}}).wire().at("reason").as_string().size(), 300u);
  EXPECT_EQ((O{O::Failed{""}}).wire(), json::parse(R"({"outcome":"failed","reason":"It did not work."})"));
  EXPECT_EQ((O{O::NeedsPress{"Press Allow on the Mac.", "folder"}}).wire(),
            json::parse(R"({"outcome":"needs_press","sentence":"Press Allow on the Mac.","asks":"folder"})"));
  EXPECT_FALSE((O{O::NeedsPress{"Press.", std::nullopt}}).wire().contains("asks"));

  const auto screen = (O{O::ScreenText{"Mail", std::string(6001, 't'), false, std::nullopt}}).wire().at("result");
  EXPECT_EQ(screen.at("text").as_string().size(), 6000u);
  EXPECT_EQ(screen.at("truncated"), true);
  EXPECT_EQ((O{O::FileText{"short", true, 3, 2}}).wire(),
            json::parse(R"({"outcome":"done","result":{"kind":"read_file","text":"short","truncated":true,)"
                        R"("pages":3,"pagesRead":2}})"));
  const auto file = (O{O::FileText{std::string(24001, 'x'), false, std::nullopt, std::nullopt}}).wire().at("result");
  EXPECT_EQ(file.at("text").as_string().size(), 24000u);
  EXPECT_EQ(file.at("truncated"), true);

  RunningApp app{std::string(250, 'n'), std::nullopt, true, false, std::vector<std::string>(45, "w"), 7};
  const auto apps = (O{O::Apps{{app}}}).wire().at("result").at("apps").as_array().at(0).as_object();
  EXPECT_EQ(apps.at("name").as_string().size(), 200u);
  EXPECT_EQ(apps.at("windows").as_array().size(), 40u);
  EXPECT_FALSE(apps.contains("bundleId"));

  EXPECT_EQ((O{O::Acted{"type_text", {}}}).code(), "done.type_text");
  EXPECT_EQ((O{O::Acted{"wiggle", {}}}).code(), "done.act");
}

}  // namespace
}  // namespace quarl

#include "OperatorStepRequest.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

namespace quarl {
namespace {

using R = OperatorStepRequest;

std::optional<R> parse(std::string_view text) { return R::parse(boost::json::parse(text).as_object()); }

template <class Step>
Step as(std::string_view text) {
  const auto request = parse(text);
  EXPECT_TRUE(request) << text;
  return request ? std::get<Step>(request->value) : Step{};
}

TEST(OperatorStepRequest, AStepIsUnderstoodWholeAndWithinItsLimitsOrNotAtAll) {
  const std::string units2000(2000, 'x');
  std::vector<std::string> notUnderstood{
      R"({})", R"({"kind":"dance"})", R"({"kind":"open_app"})", R"({"kind":"look","app":"Safari","extra":1})",
      R"({"kind":"look","ref":"abcdefgh"})", R"({"kind":"look","app":"   "})", R"({"kind":"key","key":"A"})",
      R"({"kind":"look","app":")" + std::string(121, 'a') + R"("})", R"({"kind":"key","key":"!"})",
      R"({"kind":"press_element","element":"no spaces"})", R"({"kind":"key","key":"a","modifiers":["hyper"]})",
      R"({"kind":"key","key":"a","modifiers":["command","command","shift","option","control"]})",
      R"({"kind":"type_text","text":")" + units2000 + R"(x"})", R"({"kind":"list_files","query":"   "})",
      R"({"kind":"list_files","query":"x","limit":21})", R"({"kind":"read_file","ref":"../../etc"})",
      R"({"kind":"read_file","ref":"abcdefg"})"};
  for (const char* amount : {"11", "2.5", "\"3\"", "0", "-1"})
    notUnderstood.push_back(std::string(R"({"kind":"scroll","direction":"down","amount":)") + amount + "}");
  for (const auto& text : notUnderstood) EXPECT_FALSE(parse(text)) << text;

  EXPECT_EQ(as<R::Look>(R"({"kind":"look","app":"  )" + std::string(120, 'a') + R"( \n"})").app, std::string(120, 'a'));
  const auto press = parse(R"({"kind":"press_element","app":"Mail","element":"ax:12.3-b_c"})");
  ASSERT_TRUE(press);
  EXPECT_EQ(press->kind(), "press_element");
  EXPECT_EQ(press->klass(), MacCapabilityClass::act);
  EXPECT_EQ(press->actApp(), "Mail");
  EXPECT_EQ(parse(R"({"kind":"look","app":"Mail"})")->actApp(), std::nullopt);

  for (const std::string key : {"a", "7", "page_down"})
    EXPECT_EQ(as<R::Key>(R"({"kind":"key","key":")" + key + R"("})").key, key);
  EXPECT_EQ(as<R::Key>(R"({"kind":"key","key":"a","modifiers":["command","shift","option","control"]})").modifiers.size(), 4u);
  EXPECT_EQ(as<R::Scroll>(R"({"kind":"scroll","direction":"down"})").amount, 1);
  EXPECT_EQ(as<R::Scroll>(R"({"kind":"scroll","direction":"up","amount":3.0})").amount, 3);
  EXPECT_EQ(as<R::TypeText>(R"({"kind":"type_text","text":")" + units2000 + R"("})").text, units2000);
  EXPECT_EQ(as<R::TypeText>(R"({"kind":"type_text","text":"  kept as sent \n"})").text, "  kept as sent \n");
  const auto files = as<R::ListFiles>(R"({"kind":"list_files","query":" tax 2025 "})");
  EXPECT_EQ(files.query, "tax 2025");
  EXPECT_EQ(files.limit, 10);
  EXPECT_EQ(as<R::ListFiles>(R"({"kind":"list_files","query":"x","limit":20})").limit, 20);
  EXPECT_EQ(as<R::SendFile>(R"({"kind":"send_file","ref":"ab-_XY78"})").ref, "ab-_XY78");
}

}  // namespace
}  // namespace quarl

#include "OperatorStepRequest.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

namespace quarl {
namespace {

std::optional<OperatorStepRequest> parse(std::string_view text) {
  return OperatorStepRequest::parse(boost::json::parse(text).as_object());
}

template <class Step>
Step as(std::string_view text) {
  const auto request = parse(text);
  EXPECT_TRUE(request) << text;
  return request ? std::get<Step>(request->value) : Step{};
}

TEST(OperatorStepRequest, AStepIsUnderstoodWholeOrNotAtAll) {
  using R = OperatorStepRequest;
  EXPECT_FALSE(parse(R"({})"));
  EXPECT_FALSE(parse(R"({"kind":"dance"})"));
  EXPECT_FALSE(parse(R"({"kind":"look","app":"Safari","extra":1})"));
  EXPECT_FALSE(parse(R"({"kind":"look","ref":"abcdefgh"})")) << "a key another kind allows";
  EXPECT_EQ(as<R::Look>(R"({"kind":"look","app":"  Safari \n"})").app, "Safari");
  EXPECT_FALSE(parse(R"({"kind":"look","app":"   "})"));
  EXPECT_FALSE(parse(R"({"kind":"look","app":")" + std::string(121, 'a') + R"("})"));
  EXPECT_TRUE(parse(R"({"kind":"look","app":")" + std::string(120, 'a') + R"("})"));
  EXPECT_FALSE(parse(R"({"kind":"open_app"})")) << "open_app needs its app";

  const auto step = parse(R"({"kind":"press_element","app":"Mail","element":"ax:12.3-b_c"})");
  ASSERT_TRUE(step);
  EXPECT_EQ(step->kind(), "press_element");
  EXPECT_EQ(step->klass(), MacCapabilityClass::act);
  EXPECT_EQ(step->actApp(), "Mail");
  EXPECT_EQ(parse(R"({"kind":"look","app":"Mail"})")->actApp(), std::nullopt);
  EXPECT_FALSE(parse(R"({"kind":"press_element","element":"no spaces"})"));
}

TEST(OperatorStepRequest, KeysScrollsTextsAndFilesKeepTheirLimits) {
  using R = OperatorStepRequest;
  EXPECT_FALSE(parse(R"({"kind":"key","key":"A"})"));
  EXPECT_FALSE(parse(R"({"kind":"key","key":"!"})"));
  EXPECT_EQ(as<R::Key>(R"({"kind":"key","key":"a"})").key, "a");
  EXPECT_EQ(as<R::Key>(R"({"kind":"key","key":"7"})").key, "7");
  EXPECT_EQ(as<R::Key>(R"({"kind":"key","key":"page_down"})").key, "page_down");
  EXPECT_FALSE(parse(R"({"kind":"key","key":"a","modifiers":["command","command","shift","option","control"]})"));
  EXPECT_EQ(as<R::Key>(R"({"kind":"key","key":"a","modifiers":["command","shift","option","control"]})").modifiers.size(), 4u);
  EXPECT_FALSE(parse(R"({"kind":"key","key":"a","modifiers":["hyper"]})"));

  EXPECT_EQ(as<R::Scroll>(R"({"kind":"scroll","direction":"down"})").amount, 1);
  EXPECT_EQ(as<R::Scroll>(R"({"kind":"scroll","direction":"up","amount":3.0})").amount, 3);
  for (const char* amount : {"11", "2.5", "\"3\"", "0", "-1"}) {
    EXPECT_FALSE(parse(std::string(R"({"kind":"scroll","direction":"down","amount":)") + amount + "}")) << amount;
  }

  const std::string units2000(2000, 'x');
  EXPECT_EQ(as<R::TypeText>(R"({"kind":"type_text","text":")" + units2000 + R"("})").text, units2000);
  EXPECT_FALSE(parse(R"({"kind":"type_text","text":")" + units2000 + R"(x"})"));
  EXPECT_EQ(as<R::TypeText>(R"({"kind":"type_text","text":"  kept as sent \n"})").text, "  kept as sent \n");

  EXPECT_FALSE(parse(R"({"kind":"list_files","query":"   "})"));
  const auto files = as<R::ListFiles>(R"({"kind":"list_files","query":" tax 2025 "})");
  EXPECT_EQ(files.query, "tax 2025");
  EXPECT_EQ(files.limit, 10);
  EXPECT_EQ(as<R::ListFiles>(R"({"kind":"list_files","query":"x","limit":20})").limit, 20);
  EXPECT_FALSE(parse(R"({"kind":"list_files","query":"x","limit":21})"));
  EXPECT_TRUE(R::isFileRef("abcd-123_XYZ"));
  EXPECT_FALSE(R::isFileRef("short"));
  EXPECT_EQ(as<R::SendFile>(R"({"kind":"send_file","ref":"abcdefgh"})").ref, "abcdefgh");
  EXPECT_FALSE(parse(R"({"kind":"read_file","ref":"../../etc"})"));
}

}  // namespace
}  // namespace quarl

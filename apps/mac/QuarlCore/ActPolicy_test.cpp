#include <gtest/gtest.h>

#include <boost/json/parse.hpp>

#include "ActPolicy.h"
#include "MacKeyCodes.h"
#include "OperatorLookPolicy.h"
#include "OperatorPress.h"

namespace quarl {
namespace {

namespace json = boost::json;

OperatorStepRequest step(std::string_view text) { return *OperatorStepRequest::parse(json::parse(text).as_object()); }

ActTarget control(std::string role, std::optional<std::string> title) {
  ActTarget target;
  target.role = std::move(role);
  target.title = std::move(title);
  return target;
}

std::optional<std::string> hold(std::string_view text, std::optional<ActTarget> target = std::nullopt,
                                std::optional<std::string> bundle = std::nullopt) {
  return ActPolicy::hold(step(text), target, bundle);
}

TEST(ActPolicy, HoldsKeysThatMaySendOrDelete) {
  EXPECT_EQ(hold(R"({"kind":"key","app":"Notes","key":"return"})"), std::nullopt);
  EXPECT_EQ(hold(R"({"kind":"key","app":"Jot","key":"return"})", std::nullopt, "com.apple.notes"), std::nullopt);
  EXPECT_EQ(hold(R"({"kind":"key","app":"Mail","key":"return"})"), "Press Return in Mail.");
  EXPECT_EQ(hold(R"({"kind":"key","app":"Mail","key":"enter","modifiers":["shift"]})"), "Press Shift-Enter in Mail.");
  EXPECT_EQ(hold(R"({"kind":"key","app":"TextEdit","key":"d","modifiers":["command"]})"), "Press Command-D in TextEdit.");
  EXPECT_EQ(hold(R"({"kind":"key","app":"Finder","key":"delete","modifiers":["shift","command"]})"),
            "Press Shift-Command-Delete in Finder.");
  EXPECT_EQ(hold(R"({"kind":"key","app":"TextEdit","key":"d","modifiers":["option"]})"), std::nullopt);
  EXPECT_EQ(hold(R"({"kind":"key","app":"Mail","key":"tab"})"), std::nullopt);
  EXPECT_EQ(ActPolicy::keyWords("page_down", {"command", "control", "option"}), "Control-Option-Command-Page Down");

  EXPECT_EQ(MacKeyCodes::code("return"), 36);
  EXPECT_EQ(MacKeyCodes::code("d"), 2);
  EXPECT_EQ(MacKeyCodes::code("7"), 26);
  EXPECT_EQ(MacKeyCodes::code("."), std::nullopt);
  EXPECT_EQ(MacKeyCodes::flags({"command", "shift"}), MacKeyCodes::commandFlag | MacKeyCodes::shiftFlag);
  EXPECT_TRUE(MacKeyCodes::isStopKeys(47, {"control", "option", "command", "shift"}));
  EXPECT_FALSE(MacKeyCodes::isStopKeys(47, {"control", "command"}));
  EXPECT_FALSE(MacKeyCodes::isStopKeys(46, {"control", "option", "command"}));
}

TEST(ActPolicy, HoldsTypingThatSubmitsOrLandsOutsideAField) {
  const auto field = control("AXTextField", "To");
  EXPECT_EQ(hold(R"({"kind":"type_text","app":"Mail","element":"3.1","text":"hello"})", field), std::nullopt);
  EXPECT_EQ(hold(R"({"kind":"type_text","app":"Mail","element":"3.1","text":"hi\nthere"})", field),
            "Type “hi\nthere” in Mail and press Return.");
  EXPECT_EQ(hold(R"({"kind":"type_text","app":"Mail","text":"hi\n"})"),
            "Type “hi\n” in Mail and press Return, wherever the focus is.");
  EXPECT_EQ(hold(R"({"kind":"type_text","app":"Mail","element":"3.1","text":"a\tb"})", field),
            "Type “a\tb” in Mail, with Tab between.");
  EXPECT_EQ(hold(R"({"kind":"type_text","app":"Mail","element":"3.1","text":"a\u001bb"})", field),
            "Type “a\u001bb” in Mail, with a key inside it.");
  EXPECT_EQ(hold(R"({"kind":"type_text","app":"Mail","element":"3.2","text":"yes"})", control("AXButton", "Send")),
            "Type “yes” into “Send” in Mail, which is not a field.");
  EXPECT_EQ(hold(R"({"kind":"type_text","app":"Mail","element":"3.2","text":"yes"})", control("AXCheckBox", {})),
            "Type “yes” into a control in Mail, which is not a field.");
  EXPECT_EQ(hold(R"({"kind":"type_text","app":"TextEdit","text":"line\nline"})"), std::nullopt);
  EXPECT_EQ(ActPolicy::quote(std::string(100, 'w')), "“" + std::string(80, 'w') + "…”");
}

TEST(ActPolicy, HoldsPressesOfControlsThatSendBuyOrConfirm) {
  const auto press = R"({"kind":"press_element","app":"Shop","element":"4.2"})";
  EXPECT_EQ(hold(press, control("AXButton", "Send")), "Press “Send” in Shop.");
  EXPECT_EQ(hold(press, control("AXButton", "Place order")), "Press “Place order” in Shop.");
  EXPECT_EQ(hold(press, control("AXButton", "  OK ")), "Press “OK” in Shop.");
  EXPECT_EQ(hold(press, control("AXButton", "Sending options")), std::nullopt);
  EXPECT_EQ(hold(press, control("AXButton", "Okay then")), std::nullopt);
  auto unnamed = control("AXButton", " ");
  EXPECT_EQ(hold(press, unnamed), std::nullopt);
  unnamed.dialogText = "Delete 3 messages?";
  EXPECT_EQ(hold(press, unnamed), "Press a control with no name in Shop.");
  auto labelled = control("AXButton", {});
  labelled.label = "Buy now";
  EXPECT_EQ(hold(press, labelled), "Press “Buy now” in Shop.");
  EXPECT_EQ(hold(R"({"kind":"scroll","app":"Shop","direction":"down"})"), std::nullopt);
  EXPECT_EQ(hold(R"({"kind":"open_app","app":"Shop"})"), std::nullopt);

  const RunningApp front{"Safari", "com.apple.Safari", true, false, {}, 42};
  EXPECT_TRUE(ActPolicy::isFront("safari", front));
  EXPECT_TRUE(ActPolicy::isFront("COM.APPLE.SAFARI", front));
  EXPECT_FALSE(ActPolicy::isFront("Mail", front));
  EXPECT_FALSE(ActPolicy::isFront("Safari", std::nullopt));
}

TEST(OperatorPress, ApprovesOnlyThisStepOfThisRun) {
  const auto one = json::parse(R"({"kind":"press_element","app":"Shop","element":"4.2"})").as_object();
  const auto reordered = json::parse(R"({"element":"4.2","kind":"press_element","app":"Shop"})").as_object();
  EXPECT_EQ(OperatorPress::canonical("r1", one),
            R"({"runId":"r1","step":{"app":"Shop","element":"4.2","kind":"press_element"}})");
  EXPECT_EQ(OperatorPress::digest("r1", one), OperatorPress::digest("r1", reordered));
  EXPECT_EQ(OperatorPress::canonical("r\"1", json::parse(R"({"text":"a\n\u0001é","amount":3.0,"n":[true,null]})").as_object()),
            "{\"runId\":\"r\\\"1\",\"step\":{\"amount\":3,\"n\":[true,null],\"text\":\"a\\n\\u0001é\"}}");
  EXPECT_EQ(OperatorPress::digest("r1", json::parse(R"({"amount":2.5})").as_object()), std::nullopt);

  const json::value press(*OperatorPress::digest("r1", one));
  EXPECT_TRUE(OperatorPress::approves(press, "r1", reordered));
  EXPECT_FALSE(OperatorPress::approves(press, "r2", one));
  EXPECT_FALSE(OperatorPress::approves(press, "r1", json::parse(R"({"kind":"press_element","app":"Shop","element":"4.3"})").as_object()));
  EXPECT_FALSE(OperatorPress::approves(json::value(true), "r1", one));
  EXPECT_FALSE(OperatorPress::approves(std::nullopt, "r1", one));
  // The documented example, as `printf %s FORM | sha256sum` digests it.
  EXPECT_EQ(*OperatorPress::digest("r1", json::parse(R"({"kind":"press_element","app":"Mail","element":"4.2"})").as_object()),
            "cfdf10aac16834c6709f80c603ad6985b03445d699b739cc4cec2679f0a938e1");
}

TEST(OperatorLookPolicy, ChoosesTheAppAndNeverLooksAtSecretsOrItself) {
  const std::vector<RunningApp> running{{"Terminal", "org.gnome.Terminal", false, false, {}, 10},
                                        {"KeePassXC", "org.keepassxc.KeePassXC", false, false, {}, 11},
                                        {"Quarl", std::nullopt, false, false, {}, 99},
                                        {"Keychain Access", "com.apple.keychainaccess", true, false, {}, 12}};
  EXPECT_EQ(std::get<RunningApp>(OperatorLookPolicy::frontTarget("terminal", running, 99)).processId, 10);
  EXPECT_EQ(std::get<std::string>(OperatorLookPolicy::frontTarget("Mail", running, 99)), "Mail is not open on this Mac.");
  for (const auto* secret : {"KeePassXC", "Quarl"}) {
    EXPECT_EQ(std::get<std::string>(OperatorLookPolicy::frontTarget(secret, running, 99)),
              OperatorLookPolicy::neverLooksSentence);
  }
  EXPECT_EQ(std::get<std::string>(OperatorLookPolicy::frontTarget(std::nullopt, running, 99)),
            OperatorLookPolicy::neverLooksSentence);
  EXPECT_EQ(std::get<std::string>(OperatorLookPolicy::frontTarget(std::nullopt, {running[0]}, 99)),
            OperatorLookPolicy::noFrontAppSentence);
  EXPECT_EQ(OperatorLookPolicy::excludedProcesses(running, 99), (std::vector<std::int64_t>{99, 11, 12}));
}

}  // namespace
}  // namespace quarl

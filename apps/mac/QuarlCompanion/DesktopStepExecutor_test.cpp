#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>
#include <boost/json/parse.hpp>
#include <map>

#include "DesktopStepExecutor.h"
#include "OperatorPress.h"
#include "../tests/support/RunAwaitable.h"

namespace quarl {
namespace {

namespace json = boost::json;

// A desktop held in memory: Mail in front with one window of a Send button and a password field.
struct Element {
  std::map<std::string, std::string> strings;
  std::vector<std::shared_ptr<Element>> children;
};

class FakeDesktop : public AXUISource, public MacActor {
 public:
  FakeDesktop() {
    auto send = std::make_shared<Element>(Element{{{"AXRole", "AXButton"}, {"AXTitle", "Send"}}, {}});
    auto secret = std::make_shared<Element>(
        Element{{{"AXRole", "AXTextField"}, {"AXSubrole", "AXSecureTextField"}, {"AXValue", "hunter2"}}, {}});
    window_ = std::make_shared<Element>(Element{{{"AXRole", "AXWindow"}, {"AXTitle", "Inbox"}}, {send, secret}});
  }
  std::optional<std::string> string(std::string_view attribute, const AXElement& of) override {
    const auto& strings = static_cast<Element*>(of.get())->strings;
    const auto found = strings.find(std::string(attribute));
    return found == strings.end() ? std::nullopt : std::optional(found->second);
  }
  std::optional<bool> boolean(std::string_view, const AXElement&) override { return true; }
  std::vector<AXElement> children(const AXElement& of, std::size_t) override {
    const auto& kids = static_cast<Element*>(of.get())->children;
    return {kids.begin(), kids.end()};
  }
  std::vector<RunningApp> runningApps() override { return apps; }
  std::optional<AXElement> frontWindow(std::int64_t) override { return window_; }
  std::optional<AXElement> focusedElement(std::int64_t) override {
    if (!focus) return std::nullopt;
    return window_->children[*focus];
  }

  std::optional<std::string> press(const AXElement& element, std::string_view) override {
    done.push_back("press " + *string("AXTitle", element));
    return std::nullopt;
  }
  std::optional<std::string> type(const AXElement& element, std::string_view text, const RunningApp&) override {
    done.push_back("type " + std::string(text) + " into " + string("AXRole", element).value_or(""));
    return std::nullopt;
  }
  std::optional<std::string> key(const RunningApp& app, std::string_view key, const std::vector<std::string>&) override {
    done.push_back("key " + std::string(key) + " to " + app.name);
    return std::nullopt;
  }
  std::optional<std::string> scroll(const RunningApp&, std::string_view, std::int64_t) override {
    return std::string("The scroll could not be made.");
  }
  std::optional<std::string> openApp(std::string_view name) override {
    if (name != "TextEdit") return name == "Broken" ? std::string("Broken could not be opened.") : std::string(std::string(name) + " is not on this Mac.");
    // Handed over to a copy that was already running, as a single-instance app does.
    apps = {{"TextEdit", "com.apple.TextEdit", true, false, {"Untitled"}, 7}};
    return std::nullopt;
  }

  std::vector<RunningApp> apps{{"Mail", "com.apple.mail", true, false, {"Inbox"}, 11},
                               {"Notes", "com.apple.Notes", false, false, {}, 13}};
  std::vector<std::string> done;
  std::optional<std::size_t> focus;  // which of the window's controls holds the focus

 private:
  std::shared_ptr<Element> window_;
};

class DesktopSteps : public ::testing::Test {
 protected:
  DesktopSteps()
      : executor_({desktop_, nullptr, desktop_}, [this] { return caps_; }, std::make_shared<SystemClock>(), 99) {
    caps_.accessibility = caps_.postEvents = CapabilityState::granted;
  }
  json::object step(std::string_view text, std::string_view mode = "auto", bool pressed = false) {
    const auto object = json::parse(text).as_object();
    OperatorStepContext context{"run-1", "s", object, json::parse(R"({"mode":")" + std::string(mode) + R"("})"), {}, {}, {}};
    if (pressed) context.pressed = json::value(*OperatorPress::digest("run-1", object));
    return testing::runAwaitable(io_, executor_.run(*OperatorStepRequest::parse(object), context, nullptr)).wire();
  }
  json::value reason(std::string_view text) { return step(text).at("reason"); }

  boost::asio::io_context io_;
  std::shared_ptr<FakeDesktop> desktop_ = std::make_shared<FakeDesktop>();
  OperatorCaps caps_;
  DesktopStepExecutor executor_;
};

TEST_F(DesktopSteps, ChecksEveryActInItsOrderBeforeTheActorDoesIt) {
  const auto pressSend = R"({"kind":"press_element","app":"Mail","element":"1.2"})";
  EXPECT_EQ(reason(R"({"kind":"press_element","element":"1.2"})"), "That act names no app.");
  caps_.accessibility = CapabilityState::off;
  EXPECT_EQ(reason(pressSend), "Accessibility is off for Quarl, so it cannot click or type.");
  caps_.accessibility = CapabilityState::granted;
  caps_.postEvents = CapabilityState::unknown;
  EXPECT_EQ(reason(pressSend), "Quarl needs to be restarted on the Mac before it can click or type.");
  caps_.postEvents = CapabilityState::granted;
  EXPECT_EQ(reason(R"({"kind":"key","app":"Notes","key":"a"})"), "Notes is not in front any more, so nothing was done.");
  EXPECT_EQ(reason(pressSend), "That control is from an older read of Mail, so nothing was pressed. Read it again first.");

  const auto read = step(R"({"kind":"read_screen_text"})");
  EXPECT_EQ(read.at("result").at("text"), "[1.1] AXWindow Inbox\n  [1.2] AXButton Send\n  [1.3] AXSecureTextField");
  EXPECT_EQ(reason(R"({"kind":"type_text","app":"Mail","element":"1.3","text":"x"})"), "Quarl never types into a password field.");
  EXPECT_EQ(reason(R"({"kind":"press_element","app":"Mail","element":"1.1"})"),
            "That is not a control of Mail that Quarl can work, so nothing was done.");
  const auto typeHere = R"({"kind":"type_text","app":"Mail","text":"x"})";
  EXPECT_EQ(reason(typeHere), "Mail does not say where its focus is, so nothing was typed.");
  desktop_->focus = 1;
  EXPECT_EQ(reason(typeHere), "Quarl never types into a password field.") << "nor where the focus is";

  EXPECT_EQ(step(pressSend, "ask"), (json::object{{"outcome", "needs_press"}, {"sentence", "Let Quarl press buttons in Mail?"}, {"asks", "app"}}));
  EXPECT_EQ(step(pressSend), (json::object{{"outcome", "needs_press"}, {"sentence", "Press “Send” in Mail."}}));
  EXPECT_TRUE(desktop_->done.empty());
  EXPECT_EQ(step(pressSend, "ask", true),
            (json::object{{"outcome", "done"}, {"result", {{"kind", "press_element"}, {"after", {{"app", "Mail"}, {"window", "Inbox"}}}}}}));
  desktop_->focus = 0;
  EXPECT_EQ(step(typeHere, "auto", true).at("outcome"), "done");
  EXPECT_EQ(desktop_->done, (std::vector<std::string>{"press Send", "type x into AXButton"}));
  step(R"({"kind":"read_screen_text","app":"Mail"})");
  EXPECT_EQ(reason(pressSend), "That control is from an older read of Mail, so nothing was pressed. Read it again first.")
      << "the ids of the read before a new one name nothing";
}

TEST_F(DesktopSteps, OpensAppsAndSendsKeysOnlyToTheAppInFront) {
  EXPECT_EQ(reason(R"({"kind":"open_app","app":"Pages"})"), "Pages is not on this Mac.");
  EXPECT_EQ(reason(R"({"kind":"open_app","app":"Broken"})"), "Broken could not be opened.");
  EXPECT_EQ(step(R"({"kind":"key","app":"Mail","key":"return"})").at("sentence"), "Press Return in Mail.");
  EXPECT_EQ(step(R"({"kind":"open_app","app":"TextEdit"})").at("result").at("after").at("app"), "TextEdit");
  EXPECT_EQ(step(R"({"kind":"key","app":"textedit","key":"return"})").at("outcome"), "done") << "Return is safe in TextEdit";
  EXPECT_EQ(reason(R"({"kind":"scroll","app":"TextEdit","direction":"down"})"), "The scroll could not be made.");
  EXPECT_EQ(desktop_->done, std::vector<std::string>{"key return to TextEdit"});
  EXPECT_EQ(reason(R"({"kind":"read_screen_text","app":"Mail"})"), "Mail is not open on this Mac.");
}

}  // namespace
}  // namespace quarl

#include <gtest/gtest.h>
#include <signal.h>

#include <boost/json/parse.hpp>

#include "../support/FileContents.h"
#include "../support/HostHome.h"
#include "DesktopSession.h"

// Last: Xlib's macros would rename what the headers above declare.
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

namespace quarl {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;
using testing::eventually;

// quarl-companion on a private desktop, operated by devbrain as the service would, with the test
// desk to open, read and work; the owner's hands are XTest events from this test.
class HostOnTheDesktop : public ::testing::Test {
 protected:
  HostOnTheDesktop() : admin_(brain_), home_(brain_) {
    admin_.post("/admin/settings", {{"operatorHoldMs", 100}});
    home_.signIn(admin_, {{"QuarlOperatorAllowed", true}});
  }
  void SetUp() override {
    ASSERT_FALSE(session_.refusal()) << *session_.refusal();
    session_.installDesktopEntry("Quarl Test Desk", QUARL_TEST_DESK_PATH " --state " + stateFile().string());
    auto environment = home_.environment();
    environment["DISPLAY"] = std::getenv("DISPLAY");
    host_ = std::make_unique<boost::process::child>(home_.start(environment, hostLog()));
    display_ = XOpenDisplay(nullptr);
    ASSERT_NE(display_, nullptr);
  }
  ~HostOnTheDesktop() override {
    if (display_) XCloseDisplay(display_);
    if (host_) {
      ::kill(host_->id(), SIGTERM);
      host_->wait();
    }
    // The desk the host opened is the host's child, and outlives it: it is known by its state file.
    [[maybe_unused]] const int ended = ::system(("pkill -f " + stateFile().string()).c_str());
  }

  std::filesystem::path stateFile() const { return home_.path() / "desk-state.json"; }
  std::filesystem::path hostLog() const { return home_.path() / "host.log"; }
  json::object deskState() { return json::parse(testing::fileContents(stateFile())).as_object(); }

  json::object run(const std::string& runId, std::string_view step, const json::value& pressed = nullptr) {
    json::object body{{"runId", runId}, {"step", json::parse(step)}, {"permit", {{"mode", "auto"}}}};
    if (!pressed.is_null()) body["pressed"] = pressed;
    const auto stepId = admin_.post("/admin/operator/steps", body).at("stepId");
    json::object found;
    eventually(
        [&] {
          const auto results = admin_.get("/admin/operator/results");
          for (const auto& result : results.as_array())
            if (result.at("stepId") == stepId) found = result.at("result").as_object();
          return !found.empty();
        },
        30s);
    return found;
  }
  std::string idOf(const json::object& read, std::string_view name) {
    for (const auto& element : read.at("result").at("elements").as_array())
      if (element.as_object().contains("name") && element.at("name").as_string() == name) return std::string(element.at("id").as_string());
    ADD_FAILURE() << name << " is not in " << read;
    return "0.0";
  }
  std::string stoppedBy(const std::string& runId) {
    const auto stops = admin_.get("/admin/operator/stops");
    for (const auto& stop : stops.as_array())
      if (stop.at("runId") == runId.c_str()) return std::string(stop.at("by").as_string());
    return "";
  }
  void pressStopKeys() {
    const KeySym keys[] = {XK_Control_L, XK_Alt_L, XK_Super_L, XK_period};
    for (const auto key : keys) XTestFakeKeyEvent(display_, XKeysymToKeycode(display_, key), True, CurrentTime);
    for (int i = 3; i >= 0; --i) XTestFakeKeyEvent(display_, XKeysymToKeycode(display_, keys[i]), False, CurrentTime);
    XSync(display_, False);
  }
  // The Stop button sits at the right end of the bar, centred at the top of the screen.
  void clickTheBarsStop() {
    const int barLeft = (DisplayWidth(display_, DefaultScreen(display_)) - 360) / 2;
    XTestFakeMotionEvent(display_, DefaultScreen(display_), barLeft + 310, 8 + 20, CurrentTime);
    XTestFakeButtonEvent(display_, 1, True, CurrentTime);
    XTestFakeButtonEvent(display_, 1, False, CurrentTime);
    XSync(display_, False);
  }

  testing::DesktopSession session_;
  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  testing::HostHome home_;
  std::unique_ptr<boost::process::child> host_;
  Display* display_ = nullptr;
};

TEST_F(HostOnTheDesktop, TheServiceOpensReadsAndWorksTheDeskAndTheOwnerStopsItByKeysAndByTheBar) {
  const auto opened = run("run-1", R"({"kind":"open_app","app":"Quarl Test Desk"})");
  ASSERT_EQ(opened.at("outcome"), "done") << opened << testing::fileContents(hostLog());
  EXPECT_EQ(opened.at("result").at("after").at("app"), "Quarl Test Desk");
  EXPECT_EQ(admin_.lastBodyTo("/v1/mac/operator/next").at("can"), json::parse(R"(["files","screen","act"])"));

  json::object read;
  eventually([&] {
    read = run("run-1", R"({"kind":"read_screen_text","app":"Quarl Test Desk"})");
    return read.contains("result") && read.at("result").at("text").as_string().find("Count") != json::string::npos;
  });
  ASSERT_EQ(read.at("outcome"), "done") << read;
  const auto app = R"(","app":"Quarl Test Desk"})";
  EXPECT_EQ(run("run-1", R"({"kind":"press_element","element":")" + idOf(read, "Count") + app).at("outcome"), "done");
  EXPECT_EQ(run("run-1", R"({"kind":"type_text","text":"Ada","element":")" + idOf(read, "Name") + app).at("outcome"), "done");
  const auto order = R"({"kind":"press_element","element":")" + idOf(read, "Place order") + app;
  EXPECT_EQ(run("run-1", order).at("sentence"), "Press “Place order” in Quarl Test Desk.");
  EXPECT_EQ(run("run-1", order, true).at("outcome"), "done") << "pressed by the owner";
  EXPECT_EQ(run("run-1", R"({"kind":"key","key":"tab","app":"Quarl Test Desk"})").at("outcome"), "done");
  const auto look = run("run-1", R"({"kind":"look","app":"Quarl Test Desk"})");
  EXPECT_EQ(look.at("outcome"), "done");
  EXPECT_EQ(look.at("result").at("width"), 320);

  const auto state = deskState();
  EXPECT_EQ(state.at("count"), 1);
  EXPECT_EQ(state.at("name"), "Ada");
  EXPECT_EQ(state.at("placeOrderPressed"), 1);
  EXPECT_EQ(state.at("sendPressed"), 0);

  pressStopKeys();
  EXPECT_TRUE(eventually([&] { return stoppedBy("run-1") == "hotkey"; })) << testing::fileContents(hostLog());
  EXPECT_EQ(run("run-1", R"({"kind":"list_apps"})").at("reason"), "You stopped Quarl on the Mac, so this step did not run.");

  EXPECT_EQ(run("run-2", R"({"kind":"list_apps"})").at("outcome"), "done");
  clickTheBarsStop();
  EXPECT_TRUE(eventually([&] { return stoppedBy("run-2") == "bar"; })) << testing::fileContents(hostLog());
}

}  // namespace
}  // namespace quarl

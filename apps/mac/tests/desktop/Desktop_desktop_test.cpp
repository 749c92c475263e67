#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <boost/asio/io_context.hpp>
#include <boost/json/parse.hpp>
#include <thread>

#include "Base64.h"
#include "Clock.h"
#include "DesktopSession.h"
#include "FileContents.h"
#include "DesktopStepExecutor.h"
#include "AXWalk.h"
#include "OperatorLookPolicy.h"
#include "OperatorPress.h"
#include "RunAwaitable.h"
#include "TemporaryDirectory.h"
#include "platform/linux/desktop/LinuxDesktop_linux.h"

namespace quarl::testing {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;

constexpr std::string_view deskName = "Quarl Test Desk";

// The test desk on a private desktop, read and worked by the operator's own executor.
class OperatorOnTheDesktop : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    session_ = new DesktopSession();
    ASSERT_FALSE(session_->refusal()) << *session_->refusal();
    session_->installDesktopEntry(std::string(deskName), QUARL_TEST_DESK_PATH " --state " + stateFile().string());
    // A password manager that stays out of the accessibility tree, as Qt apps do by default.
    session_->installDesktopEntry("KeePassXC", "env NO_AT_BRIDGE=1 " QUARL_TEST_DESK_PATH " --state " + lockedStateFile().string());
  }
  static void TearDownTestSuite() {
    delete session_;
    session_ = nullptr;
  }
  static std::filesystem::path stateFile() { return std::filesystem::temp_directory_path() / "quarl-test-desk-state.json"; }
  static std::filesystem::path lockedStateFile() { return std::filesystem::temp_directory_path() / "quarl-test-vault-state.json"; }

  void SetUp() override {
    ASSERT_FALSE(session_->refusal()) << *session_->refusal();
    std::string refusal;
    desktop_ = LinuxDesktop::open(io_.get_executor(), refusal);
    ASSERT_TRUE(desktop_) << refusal;
    executor_ = std::make_unique<DesktopStepExecutor>(desktop_->parts(), [this] {
      OperatorCaps caps;
      desktop_->fill(caps);
      return caps;
    }, std::make_shared<SystemClock>(), 1);
  }

  // Opens the desk as an "open_app" step does, and waits until AT-SPI lists it.
  void openDesk() {
    ASSERT_EQ(step(R"({"kind":"open_app","app":"Quarl Test Desk"})").at("outcome"), "done");
    for (int i = 0; i < 100 && readScreen().find("Send") == std::string::npos; ++i) std::this_thread::sleep_for(100ms);
  }

  json::object step(std::string_view text, const std::string& runId = "run-1", bool pressed = false,
                    std::optional<std::string> pressedFor = std::nullopt) {
    const auto object = json::parse(text).as_object();
    OperatorStepContext context{runId, "step", object, json::parse(R"({"mode":"auto"})"), {}, {}, {}};
    if (pressed) context.pressed = json::value(*OperatorPress::digest(runId, pressedFor ? json::parse(*pressedFor).as_object() : object));
    return runAwaitable(io_, executor_->run(*OperatorStepRequest::parse(object), context, nullptr)).wire();
  }
  std::string readScreen() {
    const auto read = step(R"({"kind":"read_screen_text","app":"Quarl Test Desk"})");
    lastRead_ = read;
    return read.contains("result") ? std::string(read.at("result").at("text").as_string()) : "";
  }
  // The id the last read gave the control called `name`, or the first of role `role`.
  std::string idOf(std::string_view name, std::string_view role = "") {
    for (const auto& element : lastRead_.at("result").at("elements").as_array()) {
      const bool named = element.as_object().contains("name") && element.at("name").as_string() == name;
      if (named || element.at("role").as_string() == role) return std::string(element.at("id").as_string());
    }
    ADD_FAILURE() << name << " is not listed in " << lastRead_;
    return "0.0";
  }
  static std::size_t nodesIn(const AXNode& node) {
    std::size_t count = 1;
    for (const auto& child : node.children) count += nodesIn(child);
    return count;
  }
  json::object state() { return json::parse(fileContents(stateFile())).as_object(); }
  // Keys go through the X server, so the app moves its focus a moment after a "key" step is done.
  void waitForFocusOn(std::string_view role, std::int64_t processId) {
    auto& source = *desktop_->source;
    for (int i = 0; i < 50; ++i) {
      const auto focused = source.focusedElement(processId);
      if (focused && (source.string("AXSubrole", *focused) == role || source.string("AXRole", *focused) == role)) return;
      std::this_thread::sleep_for(100ms);
    }
    ADD_FAILURE() << "the focus never came to a " << role;
  }

  static inline DesktopSession* session_ = nullptr;
  boost::asio::io_context io_;
  std::shared_ptr<LinuxDesktop> desktop_;
  std::unique_ptr<DesktopStepExecutor> executor_;
  json::object lastRead_;
};

TEST_F(OperatorOnTheDesktop, ReadsTheDeskPressesTypesAndHoldsWhatSendsOrBuys) {
  openDesk();
  const auto text = readScreen();
  EXPECT_NE(text.find("AXButton Send"), std::string::npos) << text;
  EXPECT_NE(text.find("AXSecureTextField"), std::string::npos) << text;
  EXPECT_EQ(text.find("hunter2"), std::string::npos) << "a password's value is never read";
  EXPECT_TRUE(lastRead_.at("result").at("truncated").as_bool()) << "2,200 rows pass the bounds";
  EXPECT_EQ(text.find("Deep label"), std::string::npos) << "it sits deeper than 14 levels";
  EXPECT_NE(text.find("AXTextField Name"), std::string::npos) << text;
  const auto desk = std::get<RunningApp>(OperatorLookPolicy::frontTarget(std::string(deskName), desktop_->source->runningApps(), 1));
  EXPECT_EQ(nodesIn(AXWalk::build(*desktop_->source, *desktop_->source->frontWindow(*desk.processId))), AXWalk::maxNodes);
  const auto elements = lastRead_.at("result").at("elements").as_array();
  EXPECT_TRUE(std::any_of(elements.begin(), elements.end(), [](const json::value& element) {
    return element.at("role") == "AXButton" && !element.as_object().contains("name");
  })) << "the unnamed button is listed";

  const auto count = idOf("Count");
  EXPECT_EQ(step(R"({"kind":"press_element","app":"Quarl Test Desk","element":")" + count + R"("})").at("outcome"), "done");
  EXPECT_NE(readScreen().find("Pressed 1 times"), std::string::npos) << "the press is seen in the next read";
  EXPECT_EQ(state().at("count"), 1);
  EXPECT_EQ(step(R"({"kind":"press_element","app":"Quarl Test Desk","element":")" + count + R"("})").at("reason"),
            "That control is from an older read of Quarl Test Desk, so nothing was pressed. Read it again first.");

  readScreen();
  const auto typed = step(R"({"kind":"type_text","app":"Quarl Test Desk","element":")" + idOf("Name") + R"(","text":"Ada"})");
  EXPECT_EQ(typed.at("outcome"), "done") << typed;
  EXPECT_EQ(state().at("name"), "Ada");
  EXPECT_EQ(step(R"({"kind":"type_text","app":"Quarl Test Desk","element":")" + idOf("", "AXSecureTextField") + R"(","text":"x"})")
                .at("reason"),
            "Quarl never types into a password field.");

  const auto order = R"({"kind":"press_element","app":"Quarl Test Desk","element":")" + idOf("Place order") + R"("})";
  const auto held = step(order);
  EXPECT_EQ(held.at("outcome"), "needs_press");
  EXPECT_EQ(held.at("sentence"), "Press “Place order” in Quarl Test Desk.");
  EXPECT_EQ(step(order, "run-1", true, R"({"kind":"press_element","app":"Quarl Test Desk","element":"1.1"})").at("outcome"),
            "needs_press")
      << "a press of another step lifts nothing";
  EXPECT_EQ(state().at("placeOrderPressed"), 0);
  EXPECT_EQ(step(order, "run-1", true).at("outcome"), "done");
  EXPECT_EQ(state().at("placeOrderPressed"), 1);
  EXPECT_EQ(step(R"({"kind":"press_element","app":"Quarl Test Desk","element":")" + idOf("Sending options") + R"("})")
                .at("outcome"),
            "done");

  EXPECT_EQ(step(R"({"kind":"key","app":"Quarl Test Desk","key":"d","modifiers":["control"]})").at("outcome"), "needs_press")
      << "Control is the Command key here";
  EXPECT_EQ(step(R"({"kind":"key","app":"Terminal","key":"a"})").at("reason"),
            "Terminal is not in front any more, so nothing was done.");
  EXPECT_EQ(step(R"({"kind":"key","app":"Quarl Test Desk","key":"b"})").at("outcome"), "done");
  for (int i = 0; i < 20 && state().at("name").as_string().size() < 4; ++i) std::this_thread::sleep_for(100ms);
  EXPECT_NE(state().at("name").as_string().find('b'), json::string::npos) << "the key went to the field with the focus";

  const auto typeHere = R"({"kind":"type_text","app":"Quarl Test Desk","text":"hello"})";
  EXPECT_EQ(step(R"({"kind":"key","app":"Quarl Test Desk","key":"tab"})").at("outcome"), "done");
  waitForFocusOn("AXSecureTextField", *desk.processId);
  EXPECT_EQ(step(typeHere, "run-1", true).at("reason"), "Quarl never types into a password field.")
      << "the focus moved from the name to the password";
  EXPECT_EQ(step(R"({"kind":"key","app":"Quarl Test Desk","key":"tab"})").at("outcome"), "done");
  waitForFocusOn("AXTextArea", *desk.processId);
  EXPECT_EQ(step(typeHere, "run-1", true).at("outcome"), "done");
  EXPECT_EQ(state().at("notes"), "hello") << "typed where the focus is, in the notes";
}

TEST_F(OperatorOnTheDesktop, LooksAtTheScreenInTwoSizesOfJpeg) {
  const auto look = step(R"({"kind":"look"})");
  ASSERT_EQ(look.at("outcome"), "done") << look;
  const auto& result = look.at("result").as_object();
  tjhandle decoder = tjInitDecompress();
  for (const auto& [key, side] : {std::pair{"thumbnailJpegBase64", 320}, std::pair{"screenJpegBase64", 1280}}) {
    const auto bytes = *base64Decode(result.at(key).as_string());
    int width = 0, height = 0, subsampling = 0, colours = 0;
    ASSERT_EQ(tjDecompressHeader3(decoder, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), &width,
                                  &height, &subsampling, &colours),
              0)
        << key << " is not a JPEG";
    EXPECT_EQ(width, side) << key;
    EXPECT_EQ(height, side * 900 / 1440) << key << ": the private display is 1440 × 900";
  }
  tjDestroy(decoder);
  EXPECT_EQ(step(R"({"kind":"look","app":"Nothing Such"})").at("reason"), "Nothing Such is not open on this Mac.");
}

TEST_F(OperatorOnTheDesktop, BlacksOutAPasswordManagerThatKeepsOutOfTheAccessibilityTree) {
  ASSERT_EQ(step(R"({"kind":"open_app","app":"KeePassXC"})").at("outcome"), "done") << "found from its windows alone";
  const auto never = "Quarl never looks at its own windows, at passwords, at settings, or at another screen.";
  EXPECT_EQ(step(R"({"kind":"look","app":"KeePassXC"})").at("reason"), never);
  const auto apps = desktop_->source->runningApps();
  const auto vault = std::find_if(apps.begin(), apps.end(), [](const RunningApp& app) { return app.name == "KeePassXC"; });
  ASSERT_NE(vault, apps.end());
  const auto window = desktop_->windows->frontWindowOf(*vault->processId);
  ASSERT_TRUE(window);

  const auto look = step(R"({"kind":"look"})");
  ASSERT_EQ(look.at("outcome"), "done") << look;
  const auto bytes = *base64Decode(look.at("result").at("screenJpegBase64").as_string());
  std::vector<unsigned char> pixels(1280 * 800 * 3);
  tjhandle decoder = tjInitDecompress();
  ASSERT_EQ(tjDecompress2(decoder, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), pixels.data(), 1280,
                          0, 800, TJPF_RGB, 0),
            0);
  tjDestroy(decoder);
  // The window's inside, scaled as the picture is, away from the edges the scaling blurs.
  const double scale = 1280.0 / 1440.0;
  double sum = 0;
  int count = 0;
  for (int y = static_cast<int>((window->rect.y + 20) * scale); y < (window->rect.y + window->rect.height - 20) * scale; ++y) {
    for (int x = static_cast<int>((window->rect.x + 20) * scale); x < (window->rect.x + window->rect.width - 20) * scale; ++x) {
      sum += pixels[(static_cast<std::size_t>(y) * 1280 + x) * 3];
      ++count;
    }
  }
  ASSERT_GT(count, 10'000);
  EXPECT_LT(sum / count, 8) << "the vault's window is black in the picture";
  [[maybe_unused]] const int ended = ::system(("pkill -f " + lockedStateFile().string()).c_str());
}

}  // namespace
}  // namespace quarl::testing

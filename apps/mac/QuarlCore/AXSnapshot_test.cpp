#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "AXSnapshot.h"
#include "AXWalk.h"
#include "ScreenCapturer.h"

namespace quarl {
namespace {

// A tree of elements held in memory, answering as a platform would.
struct FakeElement {
  std::map<std::string, std::string> strings;
  std::optional<bool> enabled;
  std::vector<std::shared_ptr<FakeElement>> children;
};

std::shared_ptr<FakeElement> element(std::string role, std::map<std::string, std::string> more = {}) {
  auto made = std::make_shared<FakeElement>();
  made->strings = std::move(more);
  made->strings["AXRole"] = std::move(role);
  return made;
}

class FakeSource : public AXElementSource {
 public:
  std::optional<std::string> string(std::string_view attribute, const AXElement& of) override {
    const auto& strings = static_cast<FakeElement*>(of.get())->strings;
    const auto found = strings.find(std::string(attribute));
    return found == strings.end() ? std::nullopt : std::optional(found->second);
  }
  std::optional<bool> boolean(std::string_view, const AXElement& of) override {
    return static_cast<FakeElement*>(of.get())->enabled;
  }
  std::vector<AXElement> children(const AXElement& of, std::size_t atMost) override {
    const auto& kids = static_cast<FakeElement*>(of.get())->children;
    const auto given = std::min(atMost, kids.size());
    childrenGiven += given;
    return {kids.begin(), kids.begin() + static_cast<std::ptrdiff_t>(given)};
  }
  std::size_t childrenGiven = 0;
};

AXNode node(std::string role, std::optional<std::string> title = std::nullopt, std::vector<AXNode> children = {},
            std::optional<std::size_t> ref = std::nullopt) {
  AXNode made;
  made.role = std::move(role);
  made.title = std::move(title);
  made.children = std::move(children);
  made.ref = ref;
  return made;
}

TEST(AXSnapshot, WritesWordsIdsAndIndentAndKeepsPasswordsUnread) {
  auto secure = node("AXTextField", "Password", {}, 1);
  secure.subrole = "AXSecureTextField";
  secure.value = "hunter2";
  auto multi = node("AXStaticText", "  Line one\r\nline two\n");
  multi.label = "   ";
  multi.value = "v";
  AXNode deep = node("AXButton", "Deepest", {}, 3);
  for (int depth = 13; depth > 1; --depth) deep = node("AXGroup", std::nullopt, {std::move(deep)});
  const auto root = node("AXWindow", "Mail",
                         {node("AXButton", std::nullopt, {}, 0), secure, multi,
                          node("AXStaticText", std::nullopt, {node("AXButton", "Send", {}, 2)}), std::move(deep)});
  const auto snapshot = AXSnapshot::serialize(root, "Mail", 7);
  EXPECT_EQ(snapshot.text,
            "[7.1] AXWindow Mail\n"
            "  [7.2] AXButton\n"
            "  [7.3] AXSecureTextField\n"
            "  [7.4] AXStaticText Line one line two — v\n"
            "    [7.5] AXButton Send\n" +
                std::string(24, ' ') + "[7.6] AXButton Deepest");
  EXPECT_FALSE(snapshot.truncated);
  EXPECT_EQ(snapshot.elementCount, 6);
  ASSERT_EQ(snapshot.elements.size(), 4u) << "the unnamed button, the password field, Send and Deepest";
  EXPECT_EQ(snapshot.elements[0].wire(), (boost::json::object{{"id", "7.2"}, {"role", "AXButton"}}));
  EXPECT_EQ(snapshot.elements[1].role, "AXSecureTextField");
  EXPECT_EQ(snapshot.elements[1].name, std::nullopt);
  EXPECT_EQ(snapshot.elementRefs.at("7.5"), 2u);
  EXPECT_EQ(snapshot.text.find("hunter2"), std::string::npos);
}

TEST(AXSnapshot, StopsAtTheBudgetAndListsTwoHundredElements) {
  EXPECT_EQ(AXSnapshot::serialize(node("AXWindow", std::string(6000, 'x')), "A", 1).text, "");
  EXPECT_TRUE(AXSnapshot::serialize(node("AXWindow", std::string(6000, 'x')), "A", 1).truncated);

  std::vector<AXNode> buttons;
  for (std::size_t i = 0; i < 250; ++i) buttons.push_back(node("AXButton", "b", {}, i));
  const auto many = AXSnapshot::serialize(node("AXWindow", std::nullopt, buttons), "A", 2);
  EXPECT_FALSE(many.truncated);
  EXPECT_EQ(many.elementCount, 250);
  EXPECT_EQ(many.elements.size(), 200u);
  EXPECT_EQ(many.elementRefs.count("2.201"), 0u) << "later controls keep their line but are not listed";

  // Each line "  [3.N] AXButton é" costs its UTF-16 length plus the line end.
  std::vector<AXNode> accented(1000, node("AXButton", "é"));
  const auto cut = AXSnapshot::serialize(node("AXGroup", std::nullopt, accented), "A", 3, 100);
  EXPECT_TRUE(cut.truncated);
  EXPECT_EQ(cut.elementCount, 5) << cut.text;
}

TEST(AXSnapshot, ResolvesOnlyIdsOfTheCurrentGeneration) {
  EXPECT_EQ(AXSnapshot::resolve("7.3", 7), 3u);
  for (const auto* id : {"7.3", "7.0", "7", "7.1.2", "x.1", "7.-1", ".3", "7.", "07.3x"}) {
    EXPECT_EQ(AXSnapshot::resolve(id, id == std::string("7.3") ? 8 : 7), std::nullopt) << id;
  }
}

TEST(AXWalk, ReadsEveryAttributeKeepsActionableElementsAndStopsAtItsBounds) {
  auto window = element("AXWindow", {{"AXTitle", "W"}});
  auto button = element("AXButton", {{"AXTitle", "Go"}, {"AXDescription", "go on"}});
  button->enabled = false;
  window->children = {button, element("AXStaticText", {{"AXValue", "hi"}}), std::make_shared<FakeElement>()};
  FakeSource source;
  const auto kept = AXWalk::buildKeeping(source, window);
  ASSERT_EQ(kept.root.children.size(), 3u);
  EXPECT_EQ(kept.root.children[0].label, "go on");
  EXPECT_EQ(kept.root.children[0].enabled, false);
  EXPECT_EQ(kept.root.children[0].ref, 0u);
  EXPECT_EQ(kept.root.children[1].ref, std::nullopt);
  EXPECT_EQ(kept.root.children[2].role, "AXUnknown");
  ASSERT_EQ(kept.elements.size(), 1u);
  EXPECT_EQ(kept.elements[0].get(), button.get());
  EXPECT_EQ(AXWalk::build(source, window).children[0].ref, std::nullopt);

  auto deepest = element("AXGroup");
  auto chain = deepest;
  for (int i = 0; i < 20; ++i) {
    auto parent = element("AXGroup");
    parent->children = {chain};
    chain = parent;
  }
  const auto walked = AXWalk::build(source, chain);
  int depth = 0;
  for (const AXNode* at = &walked; !at->children.empty(); at = &at->children[0]) ++depth;
  EXPECT_EQ(depth, 14);

  auto wide = element("AXList");
  for (int i = 0; i < 3000; ++i) wide->children.push_back(element("AXCell"));
  source.childrenGiven = 0;
  const auto bounded = AXWalk::buildKeeping(source, wide);
  EXPECT_EQ(bounded.root.children.size(), 1999u) << "2,000 nodes with the list itself";
  EXPECT_EQ(source.childrenGiven, 1999u) << "no more children asked of the app than the walk visits";
  EXPECT_EQ(bounded.elements.size(), 1999u);
}

class LadderCapturer : public ScreenCapturer {
 public:
  std::variant<CapturedPicture, std::string> capture(const std::optional<RunningApp>&, const std::vector<std::int64_t>&) override {
    return std::string(failedSentence);
  }
  std::optional<std::string> jpeg(const CapturedPicture&, Size size, double quality) override {
    asked.push_back({size.width, quality});
    if (quality < failBelow) return std::nullopt;
    return std::string(static_cast<std::size_t>(size.width * size.height * quality * quality * bytesPerPixel), 'j');
  }
  std::vector<std::pair<int, double>> asked;
  double bytesPerPixel = 4;
  double failBelow = 0;
};

TEST(ScreenCapturer, SizesNeverEnlargeAndTheLadderFallsUntilItFits) {
  EXPECT_EQ(ScreenCapturer::size(2560, 1600, 320).width, 320);
  EXPECT_EQ(ScreenCapturer::size(2560, 1600, 320).height, 200);
  EXPECT_EQ(ScreenCapturer::size(2560, 1600, 1280).height, 800);
  EXPECT_EQ(ScreenCapturer::size(300, 200, 1280).width, 300);
  EXPECT_EQ(ScreenCapturer::size(0, 5000, 320).width, 1);

  const CapturedPicture picture{2560, 1600, {}};
  LadderCapturer capturer;
  const auto look = capturer.lookOutcome(picture).wire();
  EXPECT_EQ(look.at("result").at("width").as_int64(), 320);
  EXPECT_EQ(look.at("result").at("screenHeight").as_int64(), 800);
  // Each picture is over its limit at its first quality and is made again at 0.45.
  EXPECT_EQ(capturer.asked, (std::vector<std::pair<int, double>>{{320, 0.6}, {320, 0.45}, {1280, 0.7}, {1280, 0.45}}));

  capturer.bytesPerPixel = 10;
  EXPECT_EQ(capturer.lookOutcome(picture).wire().at("reason").as_string(), ScreenCapturer::tooLargeSentence);
  capturer.bytesPerPixel = 4;
  capturer.failBelow = 0.5;
  EXPECT_EQ(capturer.lookOutcome(picture).wire().at("reason").as_string(), ScreenCapturer::failedSentence);
}

}  // namespace
}  // namespace quarl

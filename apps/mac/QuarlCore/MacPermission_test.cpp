#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include "MacModeMenu.h"
#include "MacPermissionPolicy.h"

namespace quarl {
namespace {

namespace json = boost::json;
using Policy = MacPermissionPolicy;

MacPermit permit(std::string_view text) { return MacPermit::forStep(json::parse(text)); }

TEST(MacPermissionPolicy, TheModeAndStandingPermitsDecideWhatIsAskedFirst) {
  const auto autoRead = permit(R"({"mode":"auto_read","apps":[" Safari "]})");
  EXPECT_FALSE(Policy::fileHold("/Users/a/Documents/Taxes", "/Users/a", autoRead));
  const auto held = Policy::actHold("press_element", "Mail", {"com.apple.mail"}, autoRead);
  ASSERT_TRUE(held);
  EXPECT_EQ(held->sentence, "Let Quarl press buttons in Mail?");
  EXPECT_EQ(rawValue(held->asks), "app");
  EXPECT_FALSE(Policy::actHold("type_text", "safari", {}, autoRead)) << "apps compare trimmed and lower-cased";
  EXPECT_FALSE(Policy::actHold("type_text", "Browser", {"SAFARI"}, autoRead)) << "or by another of the app's names";
  EXPECT_FALSE(Policy::actHold("press_element", "Mail", {}, permit(R"({"mode":"auto"})")));
  EXPECT_FALSE(Policy::actHold("look", "Mail", {}, autoRead)) << "only grantable actions are held here";

  EXPECT_FALSE(MacPermit::from(json::parse(R"({"mode":"everything","apps":["Mail"]})")));
  const auto narrowest = permit(R"({"mode":"everything","folders":["/Users/a"]})");
  EXPECT_EQ(narrowest.mode, MacPermissionMode::ask);
  EXPECT_TRUE(narrowest.folders.empty()) << "an unreadable permit allows nothing for good";
  EXPECT_TRUE(permit(R"({"mode":"ask","apps":["Mail",3]})").apps.empty());

  const auto ask = permit(R"({"mode":"ask","folders":["/Users/a/Doc"]})");
  const auto folder = Policy::fileHold("/Users/a/Documents", "/Users/a", ask);
  ASSERT_TRUE(folder);
  EXPECT_EQ(folder->sentence, "Let Quarl read Documents?");
  EXPECT_EQ(rawValue(folder->asks), "folder");
  EXPECT_FALSE(Policy::fileHold("/Users/a/Doc/Old", "/Users/a", ask));
  EXPECT_EQ(Policy::fileHold("/Users/a/Library/Mobile Documents/com~apple~CloudDocs/Trips", "/Users/a", ask)->sentence,
            "Let Quarl read iCloud Drive?");
  EXPECT_EQ(Policy::fileHold("/Users/a", "/Users/a", ask)->sentence, "Let Quarl read your home folder?");
  EXPECT_EQ(Policy::fileReadHold("/Users/a/Documents/a.txt", "/Users/a", ask)->sentence, "Let Quarl read Documents?");
  EXPECT_EQ(Policy::fileReadHold("/Users/a/notes.txt", "/Users/a", ask)->sentence,
            "Let Quarl read \u201cnotes.txt\u201d in your home folder?");
  auto thatFile = ask;
  thatFile.folders = {"/Users/a/notes.txt"};
  EXPECT_FALSE(Policy::fileReadHold("/Users/a/notes.txt", "/Users/a", thatFile)) << "granted alone";
  EXPECT_TRUE(Policy::fileReadHold("/Users/a/todo.txt", "/Users/a", thatFile)) << "and only that file";
}

TEST(MacPermissionPolicy, AGrantedFolderCoversOnlyItselfAndWhatIsInsideIt) {
  EXPECT_TRUE(Policy::covers("/Users/a/Doc", "/Users/a/Doc"));
  EXPECT_TRUE(Policy::covers("/Users/a/Doc", "/Users/a/Doc/x/y"));
  EXPECT_FALSE(Policy::covers("/Users/a/Doc", "/Users/a/Documents"));
  EXPECT_FALSE(Policy::covers("/Users/a/Doc", "/Users/a/Doc/../../b")) << "a path that climbs out is not valid";
  EXPECT_FALSE(Policy::covers("/Users/a/Doc/", "/Users/a/Doc/x"));
  EXPECT_FALSE(Policy::covers("", "/Users/a"));
  EXPECT_FALSE(Policy::covers("Users/a", "Users/a/b"));
  EXPECT_FALSE(Policy::covers("/", "/Users")) << "the whole disk is not a folder one grants";
}

TEST(MacPermissionPolicy, SendingALargeFileAlwaysAsksWithItsNameAndSize) {
  EXPECT_EQ(Policy::sendAlwaysAsks("film.mov", 47'999'999), std::nullopt);
  EXPECT_EQ(Policy::sendAlwaysAsks("my   holiday  film.mov", 48'000'000),
            "Bring “my holiday film.mov” back from your Mac, 48 MB.");
  const std::string longName(100, 'x');
  EXPECT_EQ(Policy::sendAlwaysAsks(longName, 1'234'567'890), "Bring “" + std::string(80, 'x') + "…” back from your Mac, 1235 MB.");
}

TEST(MacModeMenu, AWiderModeIsSetOnlyByTheOwnersPressOnTheServicesPage) {
  using Menu = MacModeMenu;
  EXPECT_TRUE(std::holds_alternative<Menu::Nothing>(Menu::choose(MacPermissionMode::ask, std::nullopt, "dev-1")));
  const auto narrower = Menu::choose(MacPermissionMode::ask, MacPermissionMode::automatic, "dev-1");
  ASSERT_TRUE(std::holds_alternative<Menu::SetMode>(narrower));
  EXPECT_EQ(std::get<Menu::SetMode>(narrower).mode, MacPermissionMode::ask);
  const auto wider = Menu::choose(MacPermissionMode::automatic, MacPermissionMode::ask, "dev 1&x");
  ASSERT_TRUE(std::holds_alternative<Menu::OpenSettings>(wider));
  EXPECT_EQ(std::get<Menu::OpenSettings>(wider).path, "/app/settings?mac=dev%201%26x&mode=auto");
  EXPECT_EQ(Menu::mode(std::string("auto_read")), MacPermissionMode::autoRead);
  EXPECT_EQ(Menu::mode(std::string("sometimes")), std::nullopt);
  EXPECT_TRUE(widens(MacPermissionMode::autoRead, MacPermissionMode::automatic));
  EXPECT_FALSE(widens(MacPermissionMode::autoRead, MacPermissionMode::ask));
}

}  // namespace
}  // namespace quarl

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include "MacModeMenu.h"
#include "MacPermissionPolicy.h"

namespace quarl {
namespace {

namespace json = boost::json;
using Policy = MacPermissionPolicy;

MacPermit permit(std::string_view text) { return MacPermit::forStep(json::parse(text)); }

// The held read's question, and a grant of its very folder, are shown through the file steps.
TEST(MacPermissionPolicy, TheModeAndStandingPermitsDecideWhatIsAskedFirst) {
  const auto autoRead = permit(R"({"mode":"auto_read","apps":[" Safari "]})");
  const auto held = Policy::actHold("press_element", "Mail", {"com.apple.mail"}, autoRead);
  EXPECT_TRUE(held && held->sentence == "Let Quarl press buttons in Mail?" && held->asks == MacPermissionAsk::app);
  EXPECT_FALSE(Policy::actHold("type_text", "safari", {}, autoRead)) << "apps compare trimmed and lower-cased";
  EXPECT_FALSE(Policy::actHold("type_text", "Browser", {"SAFARI"}, autoRead)) << "or by another of the app's names";
  EXPECT_FALSE(Policy::actHold("press_element", "Mail", {}, permit(R"({"mode":"auto"})")));
  EXPECT_FALSE(Policy::actHold("look", "Mail", {}, autoRead)) << "only grantable actions are held here";

  const auto narrowest = permit(R"({"mode":"everything","folders":["/Users/a"]})");
  EXPECT_TRUE(narrowest.mode == MacPermissionMode::ask && narrowest.folders.empty()) << "unreadable: nothing for good";
  EXPECT_TRUE(permit(R"({"mode":"ask","apps":["Mail",3]})").apps.empty());

  const auto ask = permit(R"({"mode":"ask","folders":["/Users/a/notes.txt"]})");
  EXPECT_EQ(Policy::fileHold("/Users/a/Library/Mobile Documents/com~apple~CloudDocs/Trips", "/Users/a", ask).value().sentence,
            "Let Quarl read iCloud Drive?");
  EXPECT_EQ(Policy::fileHold("/Users/a", "/Users/a", ask).value().sentence, "Let Quarl read your home folder?");
  EXPECT_FALSE(Policy::fileReadHold("/Users/a/notes.txt", "/Users/a", ask)) << "a file in home is granted alone";
  EXPECT_EQ(Policy::fileReadHold("/Users/a/todo.txt", "/Users/a", ask).value().sentence,
            "Let Quarl read \u201ctodo.txt\u201d in your home folder?") << "and only that file";

  EXPECT_TRUE(Policy::covers("/Users/a/Doc", "/Users/a/Doc") && Policy::covers("/Users/a/Doc", "/Users/a/Doc/x/y"));
  // A path that climbs out, a trailing "/", a relative path and the whole disk are not granted.
  for (const auto& [granted, path] : std::initializer_list<std::pair<const char*, const char*>>{
           {"/Users/a/Doc", "/Users/a/Doc/../../b"}, {"/Users/a/Doc/", "/Users/a/Doc/x"}, {"", "/Users/a"},
           {"Users/a", "Users/a/b"}, {"/", "/Users"}})
    EXPECT_FALSE(Policy::covers(granted, path)) << granted << " over " << path;

  // Where sends start asking is shown through the file steps.
  EXPECT_EQ(Policy::sendAlwaysAsks("my   holiday  film.mov", 48'000'000),
            "Bring \u201cmy holiday film.mov\u201d back from your Mac, 48 MB.");
  EXPECT_EQ(Policy::sendAlwaysAsks(std::string(100, 'x'), 1'234'567'890),
            "Bring \u201c" + std::string(80, 'x') + "\u2026\u201d back from your Mac, 1235 MB.");
}

TEST(MacModeMenu, AWiderModeIsSetOnlyByTheOwnersPressOnTheServicesPage) {
  using Menu = MacModeMenu;
  using enum MacPermissionMode;
  EXPECT_TRUE(std::holds_alternative<Menu::Nothing>(Menu::choose(ask, std::nullopt, "dev-1"))) << "unknown is ask";
  EXPECT_EQ(std::get<Menu::SetMode>(Menu::choose(ask, autoRead, "dev-1")).mode, ask) << "a narrower mode is set";
  EXPECT_EQ(std::get<Menu::OpenSettings>(Menu::choose(automatic, autoRead, "dev 1&x")).path,
            "/app/settings?mac=dev%201%26x&mode=auto");
  EXPECT_EQ(Menu::mode(std::string("auto_read")), autoRead);
}

}  // namespace
}  // namespace quarl

#include "CompanionMenu.h"

#include <gmock/gmock.h>

namespace quarl {
namespace {

using Action = CompanionMenu::Action;

std::vector<std::string> titles(const std::vector<CompanionMenu::Item>& items) {
  std::vector<std::string> titles;
  for (const auto& item : items) titles.push_back(item.title + (item.checked ? " ✓" : ""));
  return titles;
}

const CompanionMenu::Item& item(const std::vector<CompanionMenu::Item>& items, const std::string& title) {
  for (const auto& item : items) {
    if (item.title == title) return item;
  }
  throw std::out_of_range("no item " + title);
}

TEST(CompanionMenu, ItOffersOnlyWhatTheMacCanDoNowAndTicksWhatIsOn) {
  CompanionStatus signedOut;
  signedOut.canOperate = true;
  signedOut.summary = "This Mac is not signed in to Quarl.";
  EXPECT_THAT(titles(CompanionMenu::items(signedOut)),
              ::testing::ElementsAre("This Mac is not signed in to Quarl.", "Sign In…", "Let Quarl operate this Mac",
                                     "Keep my Mac awake while Quarl works", "Check for Updates…", "Quit Quarl"));

  CompanionStatus working;
  working.signedIn = true;
  working.canOperate = true;
  working.summary = "Last read 2 minutes ago";
  working.operatorAllowed = true;
  working.liveRun = "run-7";
  working.whatsapp.seen = WhatsAppWeb::SessionState::linked();
  auto items = CompanionMenu::items(working);
  EXPECT_THAT(titles(items),
              ::testing::ElementsAre("Last read 2 minutes ago", "Open Quarl", "WhatsApp is linked",
                                     "Let Quarl operate this Mac ✓", "Keep my Mac awake while Quarl works",
                                     "Stop operating this Mac", "How freely Quarl works on this Mac", "Ask me",
                                     "Auto for reading", "Auto", "Check for Updates…", "Sign Out", "Quit Quarl"))
      << "no mode is ticked before the service has said which it holds";
  EXPECT_EQ(item(items, "WhatsApp is linked").action, Action::none);
  EXPECT_EQ(item(items, "Auto").mode, MacPermissionMode::automatic);
  EXPECT_EQ(item(items, "Auto").help,
            "Quarl does everything without asking, except send, submit, buy and delete, which always wait for your press.");

  working.mode = MacPermissionMode::autoRead;
  working.keepAwake = true;
  working.liveRun.reset();
  working.whatsapp.seen = WhatsAppWeb::SessionState::needsLink();
  items = CompanionMenu::items(working);
  EXPECT_EQ(item(items, "Auto for reading").checked, true);
  EXPECT_EQ(item(items, "Keep my Mac awake while Quarl works").checked, true);
  EXPECT_EQ(item(items, "Link WhatsApp…").action, Action::linkWhatsApp);
  EXPECT_THAT(titles(items), ::testing::Not(::testing::Contains("Stop operating this Mac")));

  working.whatsapp.unavailable = "this build has no WebKit";
  EXPECT_THAT(titles(CompanionMenu::items(working)), ::testing::Not(::testing::Contains("Link WhatsApp…")))
      << "a host that cannot hold the page does not offer to link it";

  working.canOperate = false;
  EXPECT_THAT(titles(CompanionMenu::items(working)),
              ::testing::ElementsAre("Last read 2 minutes ago", "Open Quarl", "Check for Updates…", "Sign Out", "Quit Quarl"))
      << "a host without the operator's parts offers none of its controls";
}

}  // namespace
}  // namespace quarl

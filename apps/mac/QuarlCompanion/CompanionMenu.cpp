#include "CompanionMenu.h"

#include <utility>

namespace quarl {

std::vector<CompanionMenu::Item> CompanionMenu::items(const CompanionStatus& status) {
  using enum Action;
  std::vector<Item> items;
  bool newSection = false;
  const auto add = [&](std::string title, Action action = none, bool checked = false) -> Item& {
    Item item;
    item.title = std::move(title);
    item.action = action;
    item.checked = checked;
    item.separatorBefore = std::exchange(newSection, false);
    return items.emplace_back(std::move(item));
  };

  add(status.summary);
  newSection = true;
  add(status.signedIn ? "Open Quarl" : "Sign In…", openWindow);
  if (status.signedIn && !status.whatsapp.unavailable) {
    if (status.whatsapp.seen == WhatsAppWeb::SessionState::linked()) {
      add("WhatsApp is linked");
    } else {
      add("Link WhatsApp…", linkWhatsApp);
    }
  }

  // A host without the operator's parts offers none of its controls.
  if (status.canOperate) {
    newSection = true;
    add("Let Quarl operate this Mac", switchOperator, status.operatorAllowed);
    add("Keep my Mac awake while Quarl works", keepAwake, status.keepAwake);
    if (status.liveRun) add("Stop operating this Mac", stopOperating);
  }
  if (status.canOperate && status.signedIn) {
    newSection = true;
    add("How freely Quarl works on this Mac");
    // No mode is ticked until the service has said which one it holds.
    for (const auto mode : {MacPermissionMode::ask, MacPermissionMode::autoRead, MacPermissionMode::automatic}) {
      auto& item = add(std::string(label(mode)), chooseMode, status.mode == mode);
      item.mode = mode;
      item.help = std::string(line(mode));
    }
  }

  newSection = true;
  add("Check for Updates…", checkForUpdates);
  if (status.signedIn) add("Sign Out", signOut);
  add("Quit Quarl", quit);
  return items;
}

}  // namespace quarl

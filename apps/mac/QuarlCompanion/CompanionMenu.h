#pragma once

#include <optional>
#include <string>
#include <vector>

#include "CompanionStatus.h"
#include "MacPermissionMode.h"

namespace quarl {

// The status-bar menu's items, in order, from what the companion shows in its status: the
// platform draws them and hands each press back by its action.
struct CompanionMenu {
  enum class Action {
    none,  // a line that only informs
    openWindow,
    linkWhatsApp,
    switchOperator,
    keepAwake,
    stopOperating,
    chooseMode,
    checkForUpdates,
    signOut,
    quit,
  };

  struct Item {
    std::string title;
    Action action = Action::none;
    bool checked = false;
    bool separatorBefore = false;
    std::optional<MacPermissionMode> mode;  // the mode a chooseMode item picks
    std::string help;                       // a longer line, shown when the pointer rests on it
  };

  static std::vector<Item> items(const CompanionStatus& status);
};

}  // namespace quarl

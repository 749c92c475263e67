#pragma once

#include <string_view>

namespace quarl {

// Who ended an operator run, as the service is told: the bar's Stop button, the menu, the stop
// key, lost conditions (or the switch turned off), the companion quitting, or the service.
enum class OperatorEndCode { bar, menu, hotkey, conditions, quit, brain };

constexpr std::string_view rawValue(OperatorEndCode code) {
  switch (code) {
    case OperatorEndCode::bar: return "bar";
    case OperatorEndCode::menu: return "menu";
    case OperatorEndCode::hotkey: return "hotkey";
    case OperatorEndCode::conditions: return "conditions";
    case OperatorEndCode::quit: return "quit";
    case OperatorEndCode::brain: return "brain";
  }
  return "conditions";
}

}  // namespace quarl

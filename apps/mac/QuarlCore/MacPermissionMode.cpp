#include "MacPermissionMode.h"

namespace quarl {

namespace {

struct ModeRow {
  MacPermissionMode mode;
  std::string_view raw;
  std::string_view label;
  std::string_view line;
};

constexpr ModeRow modes[] = {
    {MacPermissionMode::ask, "ask", "Ask me",
     "Quarl asks the first time it reads a folder or does something in an app. You can allow each one for good."},
    {MacPermissionMode::autoRead, "auto_read", "Auto for reading",
     "Quarl finds and reads your files without asking. It still asks before it does anything in an app."},
    {MacPermissionMode::automatic, "auto", "Auto",
     "Quarl does everything without asking, except send, submit, buy and delete, which always wait for your press."},
};

const ModeRow& rowOf(MacPermissionMode mode) { return modes[rank(mode)]; }

}  // namespace

int rank(MacPermissionMode mode) { return static_cast<int>(mode); }
std::string_view rawValue(MacPermissionMode mode) { return rowOf(mode).raw; }
std::string_view label(MacPermissionMode mode) { return rowOf(mode).label; }
std::string_view line(MacPermissionMode mode) { return rowOf(mode).line; }
bool widens(MacPermissionMode from, MacPermissionMode to) { return rank(to) > rank(from); }

std::optional<MacPermissionMode> macPermissionMode(std::string_view raw) {
  for (const auto& row : modes) {
    if (row.raw == raw) return row.mode;
  }
  return std::nullopt;
}

}  // namespace quarl

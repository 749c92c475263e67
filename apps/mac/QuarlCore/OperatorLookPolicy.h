#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "OperatorStepOutcome.h"

namespace quarl {

// The apps Quarl never looks at, and which app a look or a read is of.
struct OperatorLookPolicy {
  static constexpr std::string_view neverLookedAtMac[] = {
      "com.apple.keychainaccess", "com.apple.Passwords",     "com.apple.SecurityAgent",
      "com.apple.loginwindow",    "com.apple.systempreferences", "com.apple.ScreenSharing",
      "com.apple.ScreenContinuity", "com.apple.installer",   "com.1password.1password",
      "com.agilebits.onepassword7", "com.bitwarden.desktop", "com.lastpass.LastPass"};
  // Their counterparts on a Linux desktop, by desktop id or program name: password managers and
  // key rings, settings, privilege prompts, greeters, remote screens and installers.
  static constexpr std::string_view neverLookedAtLinux[] = {
      "org.keepassxc.KeePassXC", "keepassxc",          "org.gnome.seahorse.Application", "seahorse",
      "1password",               "bitwarden",          "org.gnome.Settings",             "gnome-control-center",
      "systemsettings",          "org.kde.systemsettings", "xfce4-settings-manager",     "polkit-gnome-authentication-agent-1",
      "polkit-kde-authentication-agent-1", "lightdm-gtk-greeter", "gdm",                 "org.remmina.Remmina",
      "remmina",                 "vinagre",            "org.gnome.Connections",          "org.gnome.Software",
      "gnome-software",          "synaptic"};
  static constexpr std::string_view neverLooksSentence =
      "Quarl never looks at its own windows, at passwords, at settings, or at another screen.";
  static constexpr std::string_view noFrontAppSentence = "No app is in front on this Mac.";
  static std::string notOpenSentence(std::string_view app) { return std::string(app) + " is not open on this Mac."; }

  // Whether `app` is one Quarl never looks at: this companion itself (by process id), or one of
  // the apps above by its bundle identifier or program name.
  static bool isNeverLookedAt(const RunningApp& app, std::int64_t ownProcessId);
  // The app a look or a read is of: the one named, else the one in front; or the refusal.
  static std::variant<RunningApp, std::string> frontTarget(const std::optional<std::string>& named,
                                                           const std::vector<RunningApp>& running,
                                                           std::int64_t ownProcessId);
  // The running apps Quarl never looks at: the windows a picture leaves out.
  static std::vector<std::int64_t> excludedProcesses(const std::vector<RunningApp>& running, std::int64_t ownProcessId);
};

}  // namespace quarl

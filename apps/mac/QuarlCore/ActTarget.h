#pragma once

#include <optional>
#include <string>

namespace quarl {

// The control an element id names, as the rules about acting weigh it.
struct ActTarget {
  std::optional<std::string> role;
  std::optional<std::string> subrole;
  std::optional<std::string> title;
  std::optional<std::string> label;
  std::optional<std::string> windowTitle;
  std::optional<std::string> dialogText;
  std::optional<bool> enabled;

  // What the control is called aloud: its title, else its label; none when both are blank.
  std::optional<std::string> name() const;
  bool isSecure() const;
};

}  // namespace quarl

#pragma once

#include <boost/json/object.hpp>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "AXNode.h"

namespace quarl {

// One control an act may name, as the service is told of it.
struct MacElementInfo {
  std::string id;  // "7.12"
  std::string role;
  std::optional<std::string> name;  // its words, when it has any
  std::optional<bool> enabled;

  // {"id", "role", "name"?, "enabled"?}
  boost::json::object wire() const;
};

// A window's tree as indented text, one line per node worth telling, each with an id that an
// act of the same generation may name. Password fields are written without their words.
struct AXSnapshot {
  std::string app;
  std::int64_t generation = 0;
  std::string text;
  bool truncated = false;
  std::int64_t elementCount = 0;
  std::vector<MacElementInfo> elements;
  std::map<std::string, std::size_t> elementRefs;  // element id → kept-element position

  static constexpr std::size_t budget = 6000;  // UTF-16 units of `text`
  static constexpr std::size_t elementsListed = 200;
  static constexpr int indentLevelsMax = 12;
  static constexpr std::string_view secureRole = "AXSecureTextField";
  static constexpr std::string_view actionableRoles[] = {
      "AXButton",      "AXLink",         "AXTextField",    "AXTextArea",  "AXSearchField", "AXComboBox",
      "AXMenuItem",    "AXMenuButton",   "AXPopUpButton",  "AXCheckBox",  "AXRadioButton", "AXMenuBarItem",
      "AXTab",         "AXDisclosureTriangle", "AXIncrementor", "AXSlider", "AXCell"};

  static AXSnapshot serialize(const AXNode& root, std::string app, std::int64_t generation,
                              std::size_t budget = AXSnapshot::budget);
  static std::string elementId(std::int64_t generation, std::size_t index);
  // The index an id names while `currentGeneration` is current; none for any other id, so an
  // id from an older read never presses whatever sits at that index now.
  static std::optional<std::size_t> resolve(std::string_view id, std::int64_t currentGeneration);
  static bool isSecure(std::string_view role, const std::optional<std::string>& subrole);
  static bool isActionableRole(std::string_view role);
  // What a node says: title, value and label, each on one line, joined with " — "; nothing
  // for a password field.
  static std::string words(const AXNode& node);
};

}  // namespace quarl

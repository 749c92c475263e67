#include "MacKeyCodes.h"

#include <algorithm>

namespace quarl {

std::optional<std::uint16_t> MacKeyCodes::code(std::string_view key) {
  for (const auto* table : {std::begin(named), std::begin(characters)}) {
    const auto* end = table == std::begin(named) ? std::end(named) : std::end(characters);
    const auto* found = std::find_if(table, end, [key](const Entry& entry) { return entry.name == key; });
    if (found != end) return found->code;
  }
  return std::nullopt;
}

std::uint64_t MacKeyCodes::flags(const std::vector<std::string>& modifiers) {
  std::uint64_t mask = 0;
  for (const auto& flag : modifierFlags) {
    if (std::find(modifiers.begin(), modifiers.end(), flag.modifier) != modifiers.end()) mask |= flag.mask;
  }
  return mask;
}

bool MacKeyCodes::isStopKeys(std::uint16_t code, const std::vector<std::string>& modifiers) {
  const auto stopFlags = commandFlag | optionFlag | controlFlag;
  return code == fullStop && (flags(modifiers) & stopFlags) == stopFlags;
}

}  // namespace quarl

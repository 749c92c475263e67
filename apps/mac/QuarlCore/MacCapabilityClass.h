#pragma once

#include <string_view>

namespace quarl {

// What an operator step needs of the Mac. `unadvertised` is held back: it is never sent in
// "can" and no step asks for it yet.
enum class MacCapabilityClass { files, screen, act, unadvertised, consequential };

// The classes a Mac may advertise in "can", in the order it lists them.
constexpr MacCapabilityClass advertisedClasses[] = {MacCapabilityClass::files, MacCapabilityClass::screen,
                                                    MacCapabilityClass::act, MacCapabilityClass::consequential};

// The class's name on the wire, as sent in "can".
constexpr std::string_view wireName(MacCapabilityClass klass) {
  switch (klass) {
    case MacCapabilityClass::files: return "files";
    case MacCapabilityClass::screen: return "screen";
    case MacCapabilityClass::act: return "act";
    case MacCapabilityClass::unadvertised: return "unadvertised";
    case MacCapabilityClass::consequential: return "consequential";
  }
  return "unadvertised";
}

}  // namespace quarl

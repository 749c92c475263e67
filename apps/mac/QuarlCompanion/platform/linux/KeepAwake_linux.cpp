#include "KeepAwake_linux.h"

namespace quarl {

std::optional<std::string> UnavailableKeepAwake::hold() {
  return "This computer does not let Quarl keep it awake, so it may sleep while Quarl works.";
}

}  // namespace quarl

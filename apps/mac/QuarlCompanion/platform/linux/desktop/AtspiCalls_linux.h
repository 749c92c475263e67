#pragma once

#include <atspi/atspi.h>

#include "AXNode.h"
#include "AtspiThread_linux.h"

namespace quarl::atspi {

// An AT-SPI accessible held as the walk holds any platform element: it lets go when released,
// on AT-SPI's thread, wherever the last holder drops it.
inline AXElement keep(AtspiAccessible* accessible, AtspiThread& thread) {
  return AXElement(accessible, [&thread](void* object) { thread.release(object); });
}

inline AtspiAccessible* accessibleOf(const AXElement& element) { return static_cast<AtspiAccessible*>(element.get()); }

// The error of one call, freed with it. Errors are answers too: an app that does not answer in
// time has nothing to say.
struct Error {
  GError* error = nullptr;
  Error() = default;
  Error(const Error&) = delete;
  Error& operator=(const Error&) = delete;
  ~Error() {
    if (error) g_error_free(error);
  }
  GError** operator&() { return &error; }
  explicit operator bool() const { return error != nullptr; }
};

inline bool hasState(AtspiAccessible* accessible, AtspiStateType state) {
  AtspiStateSet* states = atspi_accessible_get_state_set(accessible);
  if (!states) return false;
  const bool has = atspi_state_set_contains(states, state);
  g_object_unref(states);
  return has;
}

}  // namespace quarl::atspi

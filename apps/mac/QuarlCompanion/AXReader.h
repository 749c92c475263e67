#pragma once

#include <string>
#include <variant>

#include "AXSnapshot.h"
#include "ElementRegistry.h"
#include "OperatorStepOutcome.h"
#include "platform/AXUISource.h"

namespace quarl {

// Reads an app's front window as indented text with element ids, and keeps its controls for
// the acts that name them. Blocks: called off the main executor.
class AXReader {
 public:
  static constexpr std::string_view untrustedSentence = "Accessibility is off for Quarl, so it cannot read the screen.";
  static std::string noWindowSentence(std::string_view app) {
    return std::string(app) + " has no window Quarl can read.";
  }

  AXReader(AXUISource& source, ElementRegistry& registry) : source_(source), registry_(registry) {}
  // The snapshot of `app`'s front window, or the sentence of why there is none.
  std::variant<AXSnapshot, std::string> snapshot(const RunningApp& app, std::size_t budget = AXSnapshot::budget);

 private:
  AXUISource& source_;
  ElementRegistry& registry_;
};

}  // namespace quarl

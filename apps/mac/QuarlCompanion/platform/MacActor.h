#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "AXNode.h"
#include "OperatorStepOutcome.h"

namespace quarl {

// Carries out acts on the desktop once every rule has let them through. Each call answers none
// when it was done, else the sentence of why not; each blocks, so it is called off the main
// executor, one call at a time.
class MacActor {
 public:
  virtual ~MacActor() = default;
  // Performs the element's press action.
  virtual std::optional<std::string> press(const AXElement& element, std::string_view app) = 0;
  // Types `text` into `element` of `app`: the one the step named, or the one holding the focus.
  virtual std::optional<std::string> type(const AXElement& element, std::string_view text, const RunningApp& app) = 0;
  // A key with its modifiers, to `app` alone, which the caller has just seen in front.
  virtual std::optional<std::string> key(const RunningApp& app, std::string_view key,
                                         const std::vector<std::string>& modifiers) = 0;
  // The Mac modifiers that `modifiers` amount to here, for the rules that hold keys: a platform
  // that makes two of them one key holds both as the one the rules know.
  virtual std::vector<std::string> heldAs(const std::vector<std::string>& modifiers) const { return modifiers; }
  // Scrolls `app`'s front window by `amount` steps in `direction` ("up", "down", "left", "right").
  virtual std::optional<std::string> scroll(const RunningApp& app, std::string_view direction, std::int64_t amount) = 0;
  // Starts the app called `name`, or brings the copy already running forward; none when it
  // started, else the sentence of why not. Whether it came to the front is the caller's to see.
  virtual std::optional<std::string> openApp(std::string_view name) = 0;
};

}  // namespace quarl

#pragma once

#include <functional>
#include <string>

namespace quarl {

// The sign that Quarl is operating this Mac, with its Stop control: a floating bar on a Mac, a
// line on standard error on the Linux host. Touched on the main executor only.
class OperatorBar {
 public:
  virtual ~OperatorBar() = default;
  // Shows the bar for `runId`, replacing one shown for another run; `onStop` runs on the main
  // executor when the owner presses its Stop control.
  virtual void show(const std::string& runId, std::function<void()> onStop) = 0;
  virtual void hide() = 0;
  // Whether the owner can see it now: no step runs while it cannot.
  virtual bool isShown() const = 0;
};

}  // namespace quarl

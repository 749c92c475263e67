#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "AXNode.h"
#include "OperatorStepOutcome.h"

namespace quarl {

// The platform's accessibility interface: the elements of apps' windows, the apps that run and
// which is in front. Every call blocks (each question to an app is bounded by a one-second
// time-out), so it is called off the main executor, one call at a time, and calls made together
// go through `runBatch`.
class AXUISource : public AXElementSource {
 public:
  // The apps with windows, each with its process id; the one in front marked frontmost.
  virtual std::vector<RunningApp> runningApps() = 0;
  // The front window of the app with process id `processId`; none when it has none.
  virtual std::optional<AXElement> frontWindow(std::int64_t processId) = 0;
  // The element of the app with process id `processId` that has the keyboard focus; none when
  // the app cannot say.
  virtual std::optional<AXElement> focusedElement(std::int64_t processId) = 0;
  // Runs `work`, a batch of calls to this source and to the desktop's actor, where the platform
  // answers them: a platform whose accessibility library keeps to one thread runs it there.
  virtual void runBatch(const std::function<void()>& work) { work(); }
};

}  // namespace quarl

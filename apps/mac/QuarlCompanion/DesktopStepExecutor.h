#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <variant>

#include "Clock.h"
#include "ElementRegistry.h"
#include "OperatorCaps.h"
#include "OperatorExecutor.h"
#include "ScreenCapturer.h"
#include "platform/AXUISource.h"
#include "platform/MacActor.h"

namespace quarl {

// The platform's desktop: what reads it, takes its pictures and works it.
struct DesktopParts {
  std::shared_ptr<AXUISource> source;
  std::shared_ptr<ScreenCapturer> capturer;
  std::shared_ptr<MacActor> actor;
};

// Carries out the steps that look at the desktop and act on it: "list_apps", "look",
// "read_screen_text", and the five acts, each through every check in a fixed order: the act
// names an app; Quarl may click and type; the app is in front; the control is from the current
// read; no typing into a password field; no Stop keys; then the owner's mode and the acts that
// wait for a press; then the act, and what the front of the screen shows after it.
class DesktopStepExecutor final : public OperatorExecutor {
 public:
  static constexpr std::chrono::milliseconds frontWait{10'000};
  static constexpr std::chrono::milliseconds frontPoll{250};

  DesktopStepExecutor(DesktopParts parts, std::function<OperatorCaps()> caps, std::shared_ptr<const Clock> clock,
                      std::int64_t ownProcessId);

  bool serves(MacCapabilityClass klass) const override;
  boost::asio::awaitable<OperatorStepOutcome> run(OperatorStepRequest request, OperatorStepContext context,
                                                  std::shared_ptr<BrainClient> client) override;

 private:
  boost::asio::awaitable<OperatorStepOutcome> listApps();
  boost::asio::awaitable<OperatorStepOutcome> look(std::optional<std::string> app);
  boost::asio::awaitable<OperatorStepOutcome> readScreenText(std::optional<std::string> app);
  boost::asio::awaitable<OperatorStepOutcome> act(OperatorStepRequest request, OperatorStepContext context);
  boost::asio::awaitable<OperatorStepOutcome> openApp(std::string app);
  // The act itself, with every check passed; none when done, else why not.
  std::optional<std::string> perform(const OperatorStepRequest& request, const RunningApp& front,
                                     const std::optional<AXElement>& element);
  // Runs `work`, calls to the desktop's parts, off the main executor in one batch.
  boost::asio::awaitable<void> onDesktop(std::function<void()> work);
  boost::asio::awaitable<std::vector<RunningApp>> runningApps();
  boost::asio::awaitable<OperatorStepOutcome> acted(std::string_view kind);

  DesktopParts parts_;
  std::function<OperatorCaps()> caps_;
  std::shared_ptr<const Clock> clock_;
  std::int64_t ownProcessId_;
  ElementRegistry registry_;
};

}  // namespace quarl

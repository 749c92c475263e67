#pragma once

#include <memory>

#include "AtspiThread_linux.h"
#include "X11Windows_linux.h"
#include "platform/MacActor.h"

namespace quarl {

// Acts on an X11 desktop: presses and typing through AT-SPI, keys and scrolling through XTest,
// apps opened from their desktop entries. Its AT-SPI calls are made on AT-SPI's thread.
class DesktopActor final : public MacActor {
 public:
  DesktopActor(std::shared_ptr<X11Windows> windows, AtspiThread& thread) : windows_(std::move(windows)), thread_(thread) {}
  // Whether the display takes made-up input (the XTest extension).
  static bool canPostEvents(X11Windows& windows);

  std::optional<std::string> press(const AXElement& element, std::string_view app) override;
  std::optional<std::string> type(const AXElement& element, std::string_view text, const RunningApp& app) override;
  std::optional<std::string> key(const RunningApp& app, std::string_view key,
                                 const std::vector<std::string>& modifiers) override;
  std::optional<std::string> scroll(const RunningApp& app, std::string_view direction, std::int64_t amount) override;
  std::optional<std::string> openApp(std::string_view name) override;
  // Control and Command are both the Control key here, so Control is held as Command is.
  std::vector<std::string> heldAs(const std::vector<std::string>& modifiers) const override;

  static std::string wouldNotTypeSentence(std::string_view app) {
    return std::string(app) + " would not take the typing, so nothing was typed.";
  }

 private:
  // Types `text` as keys to the window with the focus, once `app` is seen in front once more.
  std::optional<std::string> typeAsKeys(std::string_view text, const RunningApp& app);

  std::shared_ptr<X11Windows> windows_;
  AtspiThread& thread_;
};

}  // namespace quarl

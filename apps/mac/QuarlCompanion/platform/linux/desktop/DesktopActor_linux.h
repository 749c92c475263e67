#pragma once

#include <memory>

#include "X11Windows_linux.h"
#include "platform/MacActor.h"

namespace quarl {

// Acts on an X11 desktop: presses and typing through AT-SPI, keys and scrolling through XTest,
// apps opened from their desktop entries.
class DesktopActor final : public MacActor {
 public:
  explicit DesktopActor(std::shared_ptr<X11Windows> windows) : windows_(std::move(windows)) {}
  // Whether the display takes made-up input (the XTest extension).
  static bool canPostEvents(X11Windows& windows);

  std::optional<std::string> press(const AXElement& element, std::string_view app) override;
  std::optional<std::string> type(const std::optional<AXElement>& element, std::string_view text,
                                  const RunningApp& app) override;
  std::optional<std::string> key(const RunningApp& app, std::string_view key,
                                 const std::vector<std::string>& modifiers) override;
  std::optional<std::string> scroll(const RunningApp& app, std::string_view direction, std::int64_t amount) override;
  std::variant<std::int64_t, std::string> openApp(std::string_view name) override;
  // Control and Command are both the Control key here, so Control is held as Command is.
  std::vector<std::string> heldAs(const std::vector<std::string>& modifiers) const override;

  static std::string wouldNotTypeSentence(std::string_view app) {
    return std::string(app) + " would not take the typing, so nothing was typed.";
  }

 private:
  std::shared_ptr<X11Windows> windows_;
};

}  // namespace quarl

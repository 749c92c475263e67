#pragma once

#include "platform/OperatorBar.h"

namespace quarl {

// A non-activating floating panel of 360 by 40 points, centred at the top of the screen 8 points
// below the menu bar, saying "Quarl is operating this Mac" beside a Stop button. It fades in and
// out, never takes the focus from the app being operated, and shows on every Space.
class MacOperatorBar final : public OperatorBar {
 public:
  static constexpr double width = 360;
  static constexpr double height = 40;
  static constexpr double margin = 8;
  static constexpr double fadeSeconds = 0.2;

  MacOperatorBar();
  ~MacOperatorBar() override;

  void show(const std::string& runId, std::function<void()> onStop) override;
  void hide() override;
  bool isShown() const override;

  struct Panel;

 private:
  Panel* panel_;
};

}  // namespace quarl

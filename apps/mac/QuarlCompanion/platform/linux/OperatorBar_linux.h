#pragma once

#include <optional>
#include <string>

#include "platform/OperatorBar.h"

namespace quarl {

// The headless host has no screen for a bar: when a run begins it says so on standard error,
// naming the run and how to stop it, and counts as shown until the run ends.
class StandardErrorOperatorBar final : public OperatorBar {
 public:
  void show(const std::string& runId, std::function<void()> onStop) override;
  void hide() override;
  bool isShown() const override { return shownFor_.has_value(); }

 private:
  std::optional<std::string> shownFor_;
};

}  // namespace quarl

#pragma once

#include "ScreenCapturer.h"

namespace quarl {

// Pictures through ScreenCaptureKit's one-shot capture, at the display's pixels; scaled and
// encoded as JPEG through Core Graphics and ImageIO.
class MacScreenCapturer final : public ScreenCapturer {
 public:
  // How long one capture may take before it counts as failed.
  static constexpr double captureSeconds = 10.0;

  std::variant<CapturedPicture, std::string> capture(const std::optional<RunningApp>& only,
                                                     const std::vector<std::int64_t>& excluding) override;
  std::optional<std::string> jpeg(const CapturedPicture& picture, Size size, double quality) override;
};

}  // namespace quarl

#pragma once

#include <memory>

#include "ScreenCapturer.h"
#include "X11Windows_linux.h"

namespace quarl {

// Pictures from the X display: the root window, or one app's window, with the windows of the
// apps Quarl never looks at blacked out; scaled by GdkPixbuf and encoded by TurboJPEG.
class X11ScreenCapturer final : public ScreenCapturer {
 public:
  explicit X11ScreenCapturer(std::shared_ptr<X11Windows> windows) : windows_(std::move(windows)) {}
  std::variant<CapturedPicture, std::string> capture(const std::optional<RunningApp>& only,
                                                     const std::vector<std::int64_t>& excluding) override;
  std::optional<std::string> jpeg(const CapturedPicture& picture, Size size, double quality) override;

 private:
  std::shared_ptr<X11Windows> windows_;
};

}  // namespace quarl

#include "ScreenCapturer.h"

#include <algorithm>
#include <cmath>

#include "Base64.h"

namespace quarl {

const ScreenCapturer::Ladder ScreenCapturer::thumbnail{320, 58'208, {0.6, 0.45}};
const ScreenCapturer::Ladder ScreenCapturer::screen{1280, 1'500'000, {0.7, 0.45}};

ScreenCapturer::Size ScreenCapturer::size(int displayWidth, int displayHeight, int longSide) {
  const double width = std::max(displayWidth, 1);
  const double height = std::max(displayHeight, 1);
  const double scale = std::min(longSide / std::max(width, height), 1.0);
  return {std::max(static_cast<int>(std::lround(width * scale)), 1),
          std::max(static_cast<int>(std::lround(height * scale)), 1)};
}

ScreenCapturer::Fitted ScreenCapturer::fitted(const CapturedPicture& picture, const Ladder& ladder, Size& size) {
  size = ScreenCapturer::size(picture.width, picture.height, ladder.longSide);
  for (const double quality : ladder.qualities) {
    auto bytes = jpeg(picture, size, quality);
    if (!bytes) return Fitted{std::nullopt, false};
    if (bytes->size() <= ladder.byteLimit) return Fitted{std::move(bytes), true};
  }
  return Fitted{std::nullopt, true};
}

OperatorStepOutcome ScreenCapturer::lookOutcome(const CapturedPicture& picture) {
  Size small;
  Size large;
  const auto thumb = fitted(picture, thumbnail, small);
  const auto full = thumb.bytes ? fitted(picture, screen, large) : thumb;
  if (!full.bytes) return {OperatorStepOutcome::Failed{std::string(full.encoded ? tooLargeSentence : failedSentence)}};
  return {OperatorStepOutcome::Look{base64Encode(*thumb.bytes), small.width, small.height,
                                    OperatorStepOutcome::Look::Screen{base64Encode(*full.bytes), large.width, large.height}}};
}

}  // namespace quarl

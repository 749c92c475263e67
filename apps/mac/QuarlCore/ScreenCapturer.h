#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "OperatorStepOutcome.h"

namespace quarl {

// A picture as the platform took it: packed 8-bit RGB rows, top to bottom.
struct CapturedPicture {
  int width = 0;
  int height = 0;
  std::string rgb;
};

// Takes pictures of the screen or of one app's window and makes them small enough to send: a
// thumbnail 320 pixels on its long side and a screen picture 1,280, never enlarged, each
// encoded as JPEG at falling qualities until it fits its limit. The platform takes and encodes;
// the sizes and the ladder are here. Blocking calls: run them off the main executor.
class ScreenCapturer {
 public:
  struct Size {
    int width = 0;
    int height = 0;
  };
  struct Ladder {
    int longSide;
    std::size_t byteLimit;
    std::vector<double> qualities;  // tried in order
  };

  static constexpr std::string_view noScreenSentence = "No screen is connected to this Mac.";
  static constexpr std::string_view refusedSentence =
      "macOS would not let Quarl see the screen. Check Screen Recording for Quarl.";
  static constexpr std::string_view failedSentence = "The screenshot could not be taken.";
  static constexpr std::string_view tooLargeSentence = "The screenshot could not be made small enough to send.";
  static std::string noWindowSentence(std::string_view app) { return std::string(app) + " has no window on screen."; }

  static const Ladder thumbnail;
  static const Ladder screen;

  static Size size(int displayWidth, int displayHeight, int longSide);

  virtual ~ScreenCapturer() = default;
  // The whole screen, or only `only`'s front window, leaving out the windows of the processes in
  // `excluding`. The picture or the sentence of why not.
  virtual std::variant<CapturedPicture, std::string> capture(const std::optional<RunningApp>& only,
                                                             const std::vector<std::int64_t>& excluding) = 0;
  // `picture` scaled to `size` and encoded at `quality` (0 to 1); none when encoding failed.
  virtual std::optional<std::string> jpeg(const CapturedPicture& picture, Size size, double quality) = 0;

  // The "look" outcome of a picture: its thumbnail and its screen picture, or a failure.
  OperatorStepOutcome lookOutcome(const CapturedPicture& picture);
  struct Fitted {
    std::optional<std::string> bytes;
    bool encoded = true;  // false when the encoder failed, rather than the picture not fitting
  };
  // `picture` at the ladder's size, at the first of its qualities that fits.
  Fitted fitted(const CapturedPicture& picture, const Ladder& ladder, Size& size);
};

}  // namespace quarl

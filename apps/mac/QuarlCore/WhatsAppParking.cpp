#include "WhatsAppParking.h"

#include <algorithm>

namespace quarl::WhatsAppWeb {

Point parkOrigin(const std::vector<Rect>& screenFrames, Size size) {
  if (screenFrames.empty()) return {-(size.width + noScreenParkDistance), -(size.height + noScreenParkDistance)};
  const auto lowest = [&](auto coordinate) {
    double least = coordinate(screenFrames.front());
    for (const auto& frame : screenFrames) least = std::min(least, coordinate(frame));
    return least;
  };
  return {lowest([](const Rect& frame) { return frame.origin.x; }) - size.width - parkMargin,
          lowest([](const Rect& frame) { return frame.origin.y; }) - size.height - parkMargin};
}

bool isParked(Point origin, Size size, const std::vector<Rect>& screenFrames) {
  // Rectangles that only share an edge do not intersect, as the window system counts it.
  return std::none_of(screenFrames.begin(), screenFrames.end(), [&](const Rect& frame) {
    return origin.x < frame.origin.x + frame.size.width && frame.origin.x < origin.x + size.width &&
           origin.y < frame.origin.y + frame.size.height && frame.origin.y < origin.y + size.height;
  });
}

}  // namespace quarl::WhatsAppWeb

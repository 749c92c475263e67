#pragma once

#include <vector>

namespace quarl::WhatsAppWeb {

// Screen geometry in points, origin at the lower left as the window system counts it.
struct Point {
  double x = 0, y = 0;
  friend bool operator==(const Point&, const Point&) = default;
};
struct Size {
  double width = 0, height = 0;
};
struct Rect {
  Point origin;
  Size size;
};

// The page's view, and how far beyond every screen its window is kept.
inline constexpr Size webViewSize{1100, 800};
inline constexpr double parkMargin = 1000;
inline constexpr double noScreenParkDistance = 5000;

// Where the host window goes so that no screen shows it: left of and below every screen.
Point parkOrigin(const std::vector<Rect>& screenFrames, Size size);
// Whether a window at `origin` touches no screen; with no screen known it is parked.
bool isParked(Point origin, Size size, const std::vector<Rect>& screenFrames);

}  // namespace quarl::WhatsAppWeb

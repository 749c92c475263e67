#include "X11ScreenCapturer_linux.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cmath>

namespace quarl {

namespace {

// The shift that brings a colour mask's top byte down to bits 0 to 7.
int shiftOf(unsigned long mask) {
  int shift = 0;
  while (mask > 0xff) {
    mask >>= 1;
    ++shift;
  }
  return shift;
}

CapturedPicture packed(XImage* image) {
  CapturedPicture picture{image->width, image->height, std::string()};
  picture.rgb.resize(static_cast<std::size_t>(image->width) * image->height * 3);
  const int red = shiftOf(image->red_mask), green = shiftOf(image->green_mask), blue = shiftOf(image->blue_mask);
  auto* out = reinterpret_cast<unsigned char*>(picture.rgb.data());
  for (int y = 0; y < image->height; ++y) {
    for (int x = 0; x < image->width; ++x) {
      const unsigned long pixel = XGetPixel(image, x, y);
      *out++ = static_cast<unsigned char>((pixel & image->red_mask) >> red);
      *out++ = static_cast<unsigned char>((pixel & image->green_mask) >> green);
      *out++ = static_cast<unsigned char>((pixel & image->blue_mask) >> blue);
    }
  }
  return picture;
}

void blackOut(CapturedPicture& picture, const X11Windows::Rect& area, const X11Windows::Rect& shown) {
  const int left = std::max(area.x - shown.x, 0), top = std::max(area.y - shown.y, 0);
  const int right = std::min(area.x + area.width - shown.x, picture.width);
  const int bottom = std::min(area.y + area.height - shown.y, picture.height);
  for (int y = top; y < bottom; ++y) {
    if (right <= left) break;
    std::fill_n(picture.rgb.begin() + (static_cast<std::size_t>(y) * picture.width + left) * 3, (right - left) * 3, '\0');
  }
}

}  // namespace

std::variant<CapturedPicture, std::string> X11ScreenCapturer::capture(const std::optional<RunningApp>& only,
                                                                      const std::vector<std::int64_t>& excluding) {
  // No window may appear or move between the listing of the windows to black out and the picture.
  const X11Windows::Still still(*windows_);
  const auto screen = windows_->screen();
  if (screen.width <= 0 || screen.height <= 0) return std::string(noScreenSentence);
  const auto clients = windows_->clients();
  auto shown = screen;
  if (only) {
    const auto window = only->processId ? windows_->frontWindowOf(*only->processId, clients) : std::nullopt;
    if (!window) return noWindowSentence(only->name);
    // The part of the window on the screen.
    shown.x = std::max(window->rect.x, 0);
    shown.y = std::max(window->rect.y, 0);
    shown.width = std::min(window->rect.x + window->rect.width, screen.width) - shown.x;
    shown.height = std::min(window->rect.y + window->rect.height, screen.height) - shown.y;
    if (shown.width <= 0 || shown.height <= 0) return noWindowSentence(only->name);
  }
  CapturedPicture picture;
  {
    const std::lock_guard held(windows_->lock());
    Display* display = windows_->display();
    XImage* image = XGetImage(display, DefaultRootWindow(display), shown.x, shown.y, static_cast<unsigned>(shown.width),
                              static_cast<unsigned>(shown.height), AllPlanes, ZPixmap);
    if (!image) return std::string(failedSentence);
    picture = packed(image);
    XDestroyImage(image);
  }
  for (const auto& client : clients) {
    const bool hidden = client.processId &&
                        std::find(excluding.begin(), excluding.end(), *client.processId) != excluding.end();
    if (hidden && client.viewable) blackOut(picture, client.rect, shown);
  }
  return picture;
}

std::optional<std::string> X11ScreenCapturer::jpeg(const CapturedPicture& picture, Size size, double quality) {
  GdkPixbuf* source = gdk_pixbuf_new_from_data(reinterpret_cast<const guchar*>(picture.rgb.data()), GDK_COLORSPACE_RGB,
                                               FALSE, 8, picture.width, picture.height, picture.width * 3, nullptr, nullptr);
  if (!source) return std::nullopt;
  GdkPixbuf* scaled = gdk_pixbuf_scale_simple(source, size.width, size.height, GDK_INTERP_BILINEAR);
  g_object_unref(source);
  if (!scaled) return std::nullopt;
  tjhandle encoder = tjInitCompress();
  unsigned char* bytes = nullptr;
  unsigned long length = 0;
  const int failed = encoder ? tjCompress2(encoder, gdk_pixbuf_get_pixels(scaled), size.width,
                                           gdk_pixbuf_get_rowstride(scaled), size.height, TJPF_RGB, &bytes, &length,
                                           TJSAMP_420, static_cast<int>(std::lround(quality * 100)), TJFLAG_FASTDCT)
                             : -1;
  std::optional<std::string> encoded;
  if (failed == 0) encoded.emplace(reinterpret_cast<char*>(bytes), length);
  tjFree(bytes);
  if (encoder) tjDestroy(encoder);
  g_object_unref(scaled);
  return encoded;
}

}  // namespace quarl

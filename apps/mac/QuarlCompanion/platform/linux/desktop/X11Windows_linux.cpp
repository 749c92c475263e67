#include "X11Windows_linux.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <glib.h>

#include <atomic>
#include <memory>

namespace quarl {

namespace {

// A window property's raw items, with their size in bits (0 when it is missing).
struct RawProperty {
  int format = 0;
  unsigned long count = 0;
  std::unique_ptr<unsigned char, int (*)(void*)> data{nullptr, XFree};
};

RawProperty rawProperty(Display* display, Window window, const char* name, Atom type, long longs) {
  Atom actual = None;
  unsigned long after = 0;
  unsigned char* data = nullptr;
  RawProperty raw;
  if (XGetWindowProperty(display, window, XInternAtom(display, name, False), 0, longs, False, type, &actual,
                         &raw.format, &raw.count, &after, &data) != Success) {
    raw.format = 0;
  }
  raw.data.reset(data);
  if (!data) raw.format = 0;
  return raw;
}

// A window property of 32-bit items, as Xlib hands them back (in longs).
std::vector<unsigned long> property(Display* display, Window window, const char* name, Atom type) {
  const auto raw = rawProperty(display, window, name, type, 4096);
  if (raw.format != 32) return {};
  const auto* longs = reinterpret_cast<const unsigned long*>(raw.data.get());
  return {longs, longs + raw.count};
}

std::string textProperty(Display* display, Window window, const char* name, Atom type) {
  const auto raw = rawProperty(display, window, name, type, 1024);
  if (raw.format != 8) return {};
  return {reinterpret_cast<const char*>(raw.data.get()), raw.count};
}

std::atomic<unsigned> refusedAccess{0};

int noteError(Display*, XErrorEvent* error) {
  if (error->error_code == BadAccess) ++refusedAccess;
  return 0;
}

}  // namespace

unsigned X11Windows::accessRefusals() { return refusedAccess; }

std::unique_ptr<X11Windows> X11Windows::open() {
  static const bool handled = [] {
    XSetErrorHandler(noteError);
    return true;
  }();
  (void)handled;
  Display* display = XOpenDisplay(nullptr);
  if (!display) return nullptr;
  return std::unique_ptr<X11Windows>(new X11Windows(display));
}

X11Windows::~X11Windows() { XCloseDisplay(display_); }

std::optional<unsigned long> X11Windows::activeWindow() {
  const auto active = property(display_, DefaultRootWindow(display_), "_NET_ACTIVE_WINDOW", XA_WINDOW);
  if (active.empty() || active[0] == None) return std::nullopt;
  return active[0];
}

std::optional<std::int64_t> X11Windows::processOf(unsigned long window) {
  const auto pid = property(display_, window, "_NET_WM_PID", XA_CARDINAL);
  if (pid.empty()) return std::nullopt;
  return static_cast<std::int64_t>(pid[0]);
}

std::string X11Windows::titleOf(unsigned long window) {
  auto title = textProperty(display_, window, "_NET_WM_NAME", XInternAtom(display_, "UTF8_STRING", False));
  if (!title.empty()) return title;
  // The older property is Latin-1.
  const auto latin = textProperty(display_, window, "WM_NAME", XA_STRING);
  gchar* converted = g_convert(latin.data(), static_cast<gssize>(latin.size()), "UTF-8", "ISO-8859-1", nullptr, nullptr, nullptr);
  if (converted) title = converted;
  g_free(converted);
  return title;
}

std::optional<std::int64_t> X11Windows::activeProcess() {
  const std::lock_guard held(lock_);
  const auto active = activeWindow();
  return active ? processOf(*active) : std::nullopt;
}

std::vector<X11Windows::Client> X11Windows::clients() {
  const std::lock_guard held(lock_);
  std::vector<Client> found;
  const Window root = DefaultRootWindow(display_);
  for (const auto window : property(display_, root, "_NET_CLIENT_LIST_STACKING", XA_WINDOW)) {
    XWindowAttributes attributes;
    if (!XGetWindowAttributes(display_, window, &attributes)) continue;
    int x = 0, y = 0;
    Window child = None;
    XTranslateCoordinates(display_, window, root, 0, 0, &x, &y, &child);
    found.push_back({window, processOf(window), {x, y, attributes.width, attributes.height},
                     attributes.map_state == IsViewable, titleOf(window)});
  }
  return found;
}

std::optional<X11Windows::Client> X11Windows::frontWindowOf(std::int64_t processId) {
  return frontWindowOf(processId, clients());
}

std::optional<X11Windows::Client> X11Windows::frontWindowOf(std::int64_t processId, const std::vector<Client>& among) {
  std::optional<unsigned long> active;
  {
    const std::lock_guard held(lock_);
    active = activeWindow();
  }
  std::optional<Client> top;
  for (const auto& client : among) {
    if (client.processId != processId || !client.viewable) continue;
    if (client.window == active) return client;
    top = client;
  }
  return top;
}

X11Windows::Still::Still(X11Windows& windows) : windows_(windows) {
  const std::lock_guard held(windows_.lock_);
  XGrabServer(windows_.display_);
  XSync(windows_.display_, False);
}

X11Windows::Still::~Still() {
  const std::lock_guard held(windows_.lock_);
  XUngrabServer(windows_.display_);
  XSync(windows_.display_, False);
}

X11Windows::Rect X11Windows::screen() {
  const std::lock_guard held(lock_);
  return {0, 0, DisplayWidth(display_, DefaultScreen(display_)), DisplayHeight(display_, DefaultScreen(display_))};
}

}  // namespace quarl

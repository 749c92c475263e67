#include "DesktopEvents_linux.h"

#include "X11Windows_linux.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <boost/asio/post.hpp>
#include <chrono>
#include <future>

namespace quarl {

namespace {

constexpr unsigned stopModifiers = ControlMask | Mod1Mask | Mod4Mask;
// Num Lock and Caps Lock change the state a grab must match, so each of their combinations is
// grabbed too.
constexpr unsigned lockVariants[] = {0, LockMask, Mod2Mask, LockMask | Mod2Mask};
constexpr int stopLeft = DesktopEvents::barWidth - 88;


}  // namespace

std::shared_ptr<DesktopEvents> DesktopEvents::open(boost::asio::any_io_executor main, std::string& refusal) {
  Display* display = XOpenDisplay(nullptr);
  if (!display) {
    refusal = "There is no display here for the operator bar and the stop keys.";
    return nullptr;
  }
  int wake[2];
  if (::pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0) {
    XCloseDisplay(display);
    refusal = "The operator bar could not be started.";
    return nullptr;
  }
  return std::shared_ptr<DesktopEvents>(new DesktopEvents(std::move(main), display, wake));
}

DesktopEvents::DesktopEvents(boost::asio::any_io_executor main, Display* display, int wake[2])
    : main_(std::move(main)), display_(display), wake_{wake[0], wake[1]} {
  createBar();
  thread_ = std::thread([this] { serve(); });
}

DesktopEvents::~DesktopEvents() {
  handOver([this] { quitting_ = true; });
  thread_.join();
  XCloseDisplay(display_);
  ::close(wake_[0]);
  ::close(wake_[1]);
}

void DesktopEvents::createBar() {
  const int screen = DefaultScreen(display_);
  const int x = (DisplayWidth(display_, screen) - barWidth) / 2;
  XSetWindowAttributes attributes{};
  attributes.background_pixel = 0x2b2b2b;
  attributes.event_mask = ExposureMask | ButtonPressMask | StructureNotifyMask;
  bar_ = XCreateWindow(display_, DefaultRootWindow(display_), x, barMargin, barWidth, barHeight, 0, CopyFromParent,
                       InputOutput, CopyFromParent, CWBackPixel | CWEventMask, &attributes);
  XStoreName(display_, bar_, std::string(barSentence).c_str());
  const Atom type = XInternAtom(display_, "_NET_WM_WINDOW_TYPE", False);
  const Atom dock = XInternAtom(display_, "_NET_WM_WINDOW_TYPE_DOCK", False);
  XChangeProperty(display_, bar_, type, XA_ATOM, 32, PropModeReplace, reinterpret_cast<const unsigned char*>(&dock), 1);
  const Atom state = XInternAtom(display_, "_NET_WM_STATE", False);
  const Atom above[] = {XInternAtom(display_, "_NET_WM_STATE_ABOVE", False),
                        XInternAtom(display_, "_NET_WM_STATE_STICKY", False)};
  XChangeProperty(display_, bar_, state, XA_ATOM, 32, PropModeReplace, reinterpret_cast<const unsigned char*>(above), 2);
  // Marked as this process's, so that pictures leave it out with the companion's other windows.
  const long self = static_cast<long>(::getpid());
  XChangeProperty(display_, bar_, XInternAtom(display_, "_NET_WM_PID", False), XA_CARDINAL, 32, PropModeReplace,
                  reinterpret_cast<const unsigned char*>(&self), 1);
  XWMHints hints{};
  hints.flags = InputHint;
  hints.input = False;
  XSetWMHints(display_, bar_, &hints);
  XSizeHints place{};
  place.flags = PPosition | USPosition | PMinSize | PMaxSize;
  place.x = x;
  place.y = barMargin;
  place.min_width = place.max_width = barWidth;
  place.min_height = place.max_height = barHeight;
  XSetWMNormalHints(display_, bar_, &place);
  XFlush(display_);
}

void DesktopEvents::handOver(std::function<void()> work) {
  {
    const std::lock_guard held(lock_);
    work_.push_back(std::move(work));
  }
  const char one = 1;
  [[maybe_unused]] const auto written = ::write(wake_[1], &one, 1);
}

void DesktopEvents::serve() {
  pollfd waits[2] = {{ConnectionNumber(display_), POLLIN, 0}, {wake_[0], POLLIN, 0}};
  while (!quitting_) {
    while (XPending(display_)) {
      XEvent event;
      XNextEvent(display_, &event);
      handle(&event);
    }
    ::poll(waits, 2, -1);
    char drained[64];
    while (::read(wake_[0], drained, sizeof drained) > 0) {
    }
    std::deque<std::function<void()>> work;
    {
      const std::lock_guard held(lock_);
      work.swap(work_);
    }
    for (auto& item : work) item();
    XFlush(display_);
  }
}

void DesktopEvents::handle(void* raw) {
  auto& event = *static_cast<XEvent*>(raw);
  switch (event.type) {
    case KeyPress:
      if (stopKeys_) boost::asio::post(main_, stopKeys_);
      break;
    case ButtonPress:
      if (event.xbutton.window == bar_ && event.xbutton.x >= stopLeft && onStop_) boost::asio::post(main_, onStop_);
      break;
    case Expose:
      if (event.xexpose.count == 0) draw();
      break;
    case MapNotify:
    case UnmapNotify: {
      const std::lock_guard held(lock_);
      shown_ = event.type == MapNotify;
      mapped_.notify_all();
      break;
    }
    default: break;
  }
}

void DesktopEvents::draw() {
  GC pen = XCreateGC(display_, bar_, 0, nullptr);
  XSetForeground(display_, pen, 0xffffff);
  XDrawString(display_, bar_, pen, 14, 25, barSentence.data(), static_cast<int>(barSentence.size()));
  XSetForeground(display_, pen, 0xc0392b);
  XFillRectangle(display_, bar_, pen, stopLeft, 6, 80, barHeight - 12);
  XSetForeground(display_, pen, 0xffffff);
  XDrawString(display_, bar_, pen, stopLeft + 28, 25, "Stop", 4);
  XFreeGC(display_, pen);
}

std::optional<std::string> DesktopEvents::registerKeys(std::function<void()> pressed) {
  std::promise<std::optional<std::string>> answer;
  auto registered = answer.get_future();
  handOver([this, &answer, pressed = std::move(pressed)]() mutable {
    const Window root = DefaultRootWindow(display_);
    const KeyCode period = XKeysymToKeycode(display_, XK_period);
    if (period == 0) {
      answer.set_value("This keyboard has no full-stop key, so there are no stop keys for Quarl here.");
      return;
    }
    XSync(display_, False);
    const auto refusals = X11Windows::accessRefusals();
    for (const auto variant : lockVariants) {
      XGrabKey(display_, period, stopModifiers | variant, root, False, GrabModeAsync, GrabModeAsync);
    }
    XSync(display_, False);
    if (X11Windows::accessRefusals() != refusals) {
      answer.set_value("Another program holds Control-Alt-Super-period, so the stop keys will not stop Quarl here.");
      return;
    }
    stopKeys_ = std::move(pressed);
    answer.set_value(std::nullopt);
  });
  return registered.get();
}

void DesktopEvents::show(const std::string& runId, std::function<void()> onStop) {
  if (shownFor_ == runId && shown_) return;
  shownFor_ = runId;
  handOver([this, onStop = std::move(onStop)]() mutable {
    onStop_ = std::move(onStop);
    XMapRaised(display_, bar_);
  });
  std::unique_lock held(lock_);
  mapped_.wait_for(held, std::chrono::seconds(1), [this] { return shown_.load(); });
}

void DesktopEvents::hide() {
  shownFor_.reset();
  handOver([this] {
    onStop_ = nullptr;
    XUnmapWindow(display_, bar_);
  });
}

}  // namespace quarl

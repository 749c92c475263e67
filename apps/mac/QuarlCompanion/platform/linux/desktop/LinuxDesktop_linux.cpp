#include "LinuxDesktop_linux.h"

#include <X11/Xlib.h>

#include <cstdlib>

namespace quarl {

std::shared_ptr<LinuxDesktop> LinuxDesktop::open(boost::asio::any_io_executor main, std::string& refusal) {
  const char* named = std::getenv("DISPLAY");
  if (!named || !*named) {
    refusal = "This computer has no desktop, so Quarl cannot look at or work a screen here.";
    return nullptr;
  }
  // The reads, the bar's thread and the page host each have a connection of their own, but Xlib's
  // own tables are shared: this must come before any other Xlib call in the process.
  XInitThreads();
  auto desktop = std::make_shared<LinuxDesktop>();
  desktop->windows = X11Windows::open();
  if (!desktop->windows) {
    refusal = "The display " + std::string(named) + " could not be opened, so Quarl cannot look at or work it.";
    return nullptr;
  }
  auto* atspi = AtspiThread::shared(refusal);
  if (!atspi) return nullptr;
  desktop->source = std::make_shared<AtspiSource>(desktop->windows, *atspi);
  desktop->events = DesktopEvents::open(std::move(main), refusal);
  if (!desktop->events) return nullptr;
  desktop->capturer = std::make_shared<X11ScreenCapturer>(desktop->windows);
  desktop->actor = std::make_shared<DesktopActor>(desktop->windows, *atspi);
  desktop->postsEvents = DesktopActor::canPostEvents(*desktop->windows);
  return desktop;
}

// A desktop session that this host can reach is the owner's own and unlocked to it; the
// display cannot be put to sleep from here, nor kept awake.
void LinuxDesktop::fill(OperatorCaps& caps) const {
  caps.accessibility = CapabilityState::granted;
  caps.screenRecording = CapabilityState::granted;
  caps.postEvents = postsEvents ? CapabilityState::granted : CapabilityState::off;
  caps.unlockedAtScreen = CapabilityState::granted;
  caps.displayCount = 1;
}

}  // namespace quarl

#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <memory>
#include <string>

#include "AtspiSource_linux.h"
#include "DesktopActor_linux.h"
#include "DesktopEvents_linux.h"
#include "DesktopStepExecutor.h"
#include "OperatorCaps.h"
#include "X11ScreenCapturer_linux.h"
#include "X11Windows_linux.h"

namespace quarl {

// The X11 desktop this host runs on, when it runs on one, as the operator reads and works it.
struct LinuxDesktop {
  std::shared_ptr<X11Windows> windows;
  std::shared_ptr<AtspiSource> source;
  std::shared_ptr<X11ScreenCapturer> capturer;
  std::shared_ptr<DesktopActor> actor;
  std::shared_ptr<DesktopEvents> events;
  bool postsEvents = false;

  // The desktop `$DISPLAY` names; none, with `refusal` set, when it names none or the display
  // or its accessibility bus cannot be reached. A host without one keeps to files.
  static std::shared_ptr<LinuxDesktop> open(boost::asio::any_io_executor main, std::string& refusal);
  // What the desktop lets the operator do.
  void fill(OperatorCaps& caps) const;
  DesktopParts parts() const { return {source, capturer, actor}; }
};

}  // namespace quarl

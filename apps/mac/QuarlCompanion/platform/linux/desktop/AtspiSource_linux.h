#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "AtspiThread_linux.h"
#include "X11Windows_linux.h"
#include "platform/AXUISource.h"

typedef struct _AtspiAccessible AtspiAccessible;

namespace quarl {

// The desktop's accessibility tree through AT-SPI, its roles named as the Mac names them; the
// app in front from the window manager's active window. Each question to an app waits one
// second at most. Every call is answered on AT-SPI's thread; a batch run there makes no hops.
class AtspiSource final : public AXUISource {
 public:
  AtspiSource(std::shared_ptr<X11Windows> windows, AtspiThread& thread)
      : windows_(std::move(windows)), thread_(thread) {}

  std::optional<std::string> string(std::string_view attribute, const AXElement& of) override;
  std::optional<bool> boolean(std::string_view attribute, const AXElement& of) override;
  std::vector<AXElement> children(const AXElement& of, std::size_t atMost) override;
  std::vector<RunningApp> runningApps() override;
  std::optional<AXElement> frontWindow(std::int64_t processId) override;
  std::optional<AXElement> focusedElement(std::int64_t processId) override;
  void runBatch(const std::function<void()>& work) override { thread_.run(work); }

  // The Mac's name of an AT-SPI role ("push button" → "AXButton"); "AXUnknown" for the rest.
  static std::string_view roleName(int atspiRole);

 private:
  std::optional<std::string> stringHere(std::string_view attribute, AtspiAccessible* accessible);
  std::vector<AXElement> childrenHere(AtspiAccessible* accessible, std::size_t atMost);
  std::vector<RunningApp> runningAppsHere();
  // The desktop's app of `processId`; none when it has none.
  std::optional<AXElement> appHere(std::int64_t processId);
  std::optional<AXElement> frontWindowHere(std::int64_t processId);

  std::shared_ptr<X11Windows> windows_;
  AtspiThread& thread_;
};

}  // namespace quarl

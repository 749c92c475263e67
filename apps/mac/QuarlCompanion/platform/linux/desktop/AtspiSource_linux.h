#pragma once

#include <memory>
#include <optional>
#include <string>

#include "X11Windows_linux.h"
#include "platform/AXUISource.h"

namespace quarl {

// The desktop's accessibility tree through AT-SPI, its roles named as the Mac names them; the
// app in front from the window manager's active window. Each question to an app waits one
// second at most.
class AtspiSource final : public AXUISource {
 public:
  static constexpr int callTimeoutMs = 1000;

  // None, with `refusal` set, when the accessibility bus cannot be reached.
  static std::unique_ptr<AtspiSource> open(std::shared_ptr<X11Windows> windows, std::string& refusal);

  std::optional<std::string> string(std::string_view attribute, const AXElement& of) override;
  std::optional<bool> boolean(std::string_view attribute, const AXElement& of) override;
  std::vector<AXElement> children(const AXElement& of) override;
  std::vector<RunningApp> runningApps() override;
  std::optional<AXElement> frontWindow(std::int64_t processId) override;

  // The Mac's name of an AT-SPI role ("push button" → "AXButton"); "AXUnknown" for the rest.
  static std::string_view roleName(int atspiRole);

 private:
  explicit AtspiSource(std::shared_ptr<X11Windows> windows) : windows_(std::move(windows)) {}
  std::shared_ptr<X11Windows> windows_;
};

}  // namespace quarl

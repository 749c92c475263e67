#pragma once

#include "platform/AXUISource.h"

namespace quarl {

// The Accessibility API (AXUIElement): apps' windows and their elements, each question bounded
// by a one-second messaging time-out so that a hung app answers nothing rather than stalling a
// read. The running apps come from the workspace.
class MacAXSource final : public AXUISource {
 public:
  static constexpr float messagingTimeoutSeconds = 1.0F;

  std::optional<std::string> string(std::string_view attribute, const AXElement& of) override;
  std::optional<bool> boolean(std::string_view attribute, const AXElement& of) override;
  std::vector<AXElement> children(const AXElement& of, std::size_t atMost) override;
  AXNode attributes(const AXElement& of) override;
  std::vector<RunningApp> runningApps() override;
  std::optional<AXElement> frontWindow(std::int64_t processId) override;
  std::optional<AXElement> focusedElement(std::int64_t processId) override;

  // The application element of `processId`, with its time-out set.
  static AXElement application(std::int64_t processId);
  // An attribute of `of` that is itself an element.
  static std::optional<AXElement> element(std::string_view attribute, const AXElement& of);
};

}  // namespace quarl

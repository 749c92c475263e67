#pragma once

#include <memory>

#include "AXSource_mac.h"
#include "platform/MacActor.h"

namespace quarl {

// Acts through Accessibility actions and through keyboard and scroll events posted to the
// app's own process (CGEventPostToPid), never to the system at large.
class MacEventActor final : public MacActor {
 public:
  // Typed text goes in pieces of at most this many UTF-16 units, the most one event carries.
  static constexpr std::size_t unitsPerEvent = 20;

  explicit MacEventActor(std::shared_ptr<MacAXSource> source) : source_(std::move(source)) {}

  std::optional<std::string> press(const AXElement& element, std::string_view app) override;
  std::optional<std::string> type(const AXElement& element, std::string_view text, const RunningApp& app) override;
  std::optional<std::string> key(const RunningApp& app, std::string_view key,
                                 const std::vector<std::string>& modifiers) override;
  std::optional<std::string> scroll(const RunningApp& app, std::string_view direction, std::int64_t amount) override;
  std::optional<std::string> openApp(std::string_view name) override;

 private:
  std::shared_ptr<MacAXSource> source_;
};

}  // namespace quarl

#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarl {

// One element of a window's accessibility tree as the walk read it.
struct AXNode {
  std::string role;
  std::optional<std::string> subrole;
  std::optional<std::string> title;
  std::optional<std::string> value;
  std::optional<std::string> label;
  std::vector<AXNode> children;
  // Where the platform element sits in the kept-elements list; only kept elements have one.
  std::optional<std::size_t> ref;
  std::optional<bool> enabled;
};

// A platform element, opaque to the walk: an AT-SPI accessible, an AXUIElement. The platform's
// deleter lets it go.
using AXElement = std::shared_ptr<void>;

// The questions the walk asks of the platform, named as the Mac's accessibility
// attributes ("AXRole", "AXTitle", "AXEnabled", ...). Each answer is bounded in time by the
// platform: a hung app answers nothing rather than stalling the walk. `children` answers the
// first `atMost` children only, so a list of thousands costs no more than the walk will visit.
class AXElementSource {
 public:
  virtual ~AXElementSource() = default;
  virtual std::optional<std::string> string(std::string_view attribute, const AXElement& of) = 0;
  virtual std::optional<bool> boolean(std::string_view attribute, const AXElement& of) = 0;
  virtual std::vector<AXElement> children(const AXElement& of, std::size_t atMost) = 0;
  // What the walk shows of `of`, children aside: its role ("AXUnknown" when it has none),
  // subrole, title, description, value and whether it is enabled. Asked one attribute at a
  // time here; a platform that can ask for several in one round trip to the app does.
  virtual AXNode attributes(const AXElement& of);
};

}  // namespace quarl

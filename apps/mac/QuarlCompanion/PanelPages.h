#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quarl {

// The companion's own pages in the panel window, for when the service's panel cannot be shown.
// They speak to the application through the web view's "quarl" message handler, as the panel
// does: "signIn" for the sign-in button, "sessionLapsed" when the panel's session ran out.
struct PanelPages {
  static constexpr std::string_view handlerName = "quarl";
  static constexpr std::string_view signInMessage = "signIn";
  static constexpr std::string_view sessionLapsedMessage = "sessionLapsed";

  // The sign-in page: why it shows (none for a first sign-in), the code to approve while a
  // pairing runs, and the Sign in button.
  static std::string signIn(const std::optional<std::string>& reason, const std::optional<std::string>& pairingCode);
  static std::string notice(const std::optional<std::string>& heading, const std::string& text);
  // `text` made safe to stand as text in HTML.
  static std::string escaped(std::string_view text);
};

}  // namespace quarl

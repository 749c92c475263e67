#pragma once

#include <string_view>

// The page scripts, built into the program from page-scripts/*.js at build time.
namespace quarl::WhatsAppWeb {

// What WhatsApp Web shows: {state, reclaimed?, title?, sample?}. A synchronous expression.
std::string_view sessionProbeScript();
// Injected at document start in every frame, so that the page believes it is seen.
std::string_view visibilityShimScript();
// The payload of the QR code the link screen shows; empty when it shows none.
std::string_view linkCodeScript();
// The shared helpers spliced ahead of the capture and open scripts.
std::string_view pageHelpersScript();
// One capture pass, which follows the helpers and the walk's bound (WhatsAppCapturePass.h).
std::string_view capturePassScript();
// The bodies that follow the helpers and their spliced values (WhatsAppSend.h).
std::string_view openConversationBody();
std::string_view sendTextBody();
std::string_view sendMediaBody();
// The owner's picture and video bubbles in the open conversation, as a number; "-1" without
// one. A synchronous expression.
std::string_view mediaCountScript();
// The open conversation's footer controls, a line each. A synchronous expression.
std::string_view composerReportScript();

}  // namespace quarl::WhatsAppWeb

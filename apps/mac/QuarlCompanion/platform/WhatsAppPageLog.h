#pragma once

#include <string>
#include <string_view>

#include "QuarlLog.h"

// What a page host logs when it holds WhatsApp Web to its one site and its one window. Inline,
// so that the Linux page host, a library of its own, builds them in.
namespace quarl::WhatsAppPageLog {

inline void downloadRefused(std::string_view url) {
  QuarlLog::say({{"quarl: whatsapp web offered a download (", false}, {std::string(url), true},
                 {") — refused: nothing is ever downloaded from the page", false}});
}

inline void downloadCancelled(std::string_view url) {
  QuarlLog::say({{"quarl: whatsapp web started a download (", false}, {std::string(url), true},
                 {") — cancelled: nothing is ever downloaded from the page", false}});
}

inline void newWindowRefused(std::string_view url) {
  QuarlLog::say({{"quarl: whatsapp web asked for a new window (", false}, {std::string(url), true},
                 {") — refused: the page has one window, and it is WhatsApp's", false}});
}

inline void leavingRefused(std::string_view url) {
  QuarlLog::say({{"quarl: whatsapp web tried to leave its site for ", false}, {std::string(url), true},
                 {" — refused: the page stays on WhatsApp", false}});
}

// `what` says what was asked for: "to show notifications", "for the camera or microphone".
inline void permissionRefused(std::string_view what) {
  QuarlLog::say("quarl: whatsapp web asked " + std::string(what) + " — refused: the page is given no permission");
}

inline void loadTimedOut() {
  QuarlLog::say("quarl: whatsapp web's page did not load in time — stopped; an unreadable page is loaded again later");
}

}  // namespace quarl::WhatsAppPageLog

#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace quarl::WhatsAppWeb {

// The one page the WhatsApp web view loads, and the browser it says it is: a plain desktop
// Safari, without the companion's own name, so that WhatsApp serves its ordinary web client.
inline constexpr std::string_view url = "https://web.whatsapp.com/";
inline constexpr std::string_view userAgent =
    "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 (KHTML, like Gecko) Version/18.0 "
    "Safari/605.1.15";
inline constexpr std::chrono::seconds settlePollInterval{1};
// Waiting past this is reported, never taken as an answer: a slow page is not an unlinked phone.
inline constexpr std::chrono::seconds settleDeadline{40};
inline constexpr std::chrono::seconds renavigateAfter{180};
inline constexpr std::chrono::seconds requestTimeout{60};

// What the page shows, as the session probe reads it. Only `linked` is settled.
struct SessionState {
  enum class Kind { needsLink, linked, syncing, unrecognised };
  Kind kind = Kind::unrecognised;
  std::string whatWasThere;  // for unrecognised: a sentence saying what the page showed

  static SessionState needsLink() { return {Kind::needsLink, {}}; }
  static SessionState linked() { return {Kind::linked, {}}; }
  static SessionState syncing() { return {Kind::syncing, {}}; }
  static SessionState unrecognised(std::string whatWasThere) { return {Kind::unrecognised, std::move(whatWasThere)}; }
  friend bool operator==(const SessionState&, const SessionState&) = default;
};

std::string describe(const SessionState& state);
bool isSettled(const SessionState& state);

// Whether a page this long after its navigation is worth loading again: only one that never
// became WhatsApp. A QR screen waits for the owner and a sync must be left to finish.
bool shouldRenavigate(const SessionState& lastObservation, std::chrono::duration<double> sinceNavigation);
// Whether the heartbeat names the WhatsApp channel. Only a QR screen proves the phone is
// unlinked; a page that is loading, syncing or unreadable leaves the answer to the latch.
bool shouldAdvertise(const std::optional<SessionState>& settled, bool hostsLinkedSession);
// The latch kept in QuarlWhatsappHostsSession after the page showed `observing`.
bool hostsSessionAfter(const SessionState& observing, bool previously);

// Whether the page may go to `url`: only within the origin of `siteRoot` (its scheme, host and
// port), an empty frame, or a blob of that origin. Anything else would take the owner's session
// to a page Quarl does not know.
bool isWithinSite(std::string_view url, std::string_view siteRoot);

// The session probe's JSON answer: {state, reclaimed?, title?, sample?}.
SessionState readSessionState(std::string_view answer);

}  // namespace quarl::WhatsAppWeb

#include "WhatsAppSessionState.h"

#include <boost/algorithm/string/trim_all.hpp>
#include <boost/json/parse.hpp>
#include <boost/url/parse.hpp>

#include "WhatsAppAnswerFields.h"

namespace quarl::WhatsAppWeb {
namespace json = boost::json;

namespace {

constexpr std::string_view evictedSentence =
    "WhatsApp Web is open somewhere else — it allows one web session at a time. Close WhatsApp in your browser and "
    "Quarl takes it back.";
constexpr std::string_view unreadableSentence = "the page returned nothing this build could read";

// A page's text, told in log lines and the heartbeat's blocked reason, as one line.
std::string oneLine(const std::string& text) { return boost::algorithm::trim_fill_copy(text, " "); }

struct Origin {
  std::string scheme, host, port;
  friend bool operator==(const Origin&, const Origin&) = default;
};

std::optional<Origin> originOf(std::string_view url) {
  const auto parsed = boost::urls::parse_absolute_uri(url);
  if (!parsed || !parsed->has_authority()) return std::nullopt;
  std::string port(parsed->port());
  if (port.empty()) port = parsed->scheme_id() == boost::urls::scheme::https ? "443" : parsed->scheme_id() == boost::urls::scheme::http ? "80" : "";
  std::string host(parsed->encoded_host());
  for (auto& c : host) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  std::string scheme(parsed->scheme());
  for (auto& c : scheme) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return Origin{scheme, host, port};
}

}  // namespace

bool isWithinSite(std::string_view url, std::string_view siteRoot) {
  if (url == "about:blank" || url == "about:srcdoc") return true;
  if (url.starts_with("blob:")) url.remove_prefix(5);
  const auto site = originOf(siteRoot);
  const auto target = originOf(url);
  return site && target && *site == *target;
}

std::string describe(const SessionState& state) {
  switch (state.kind) {
    case SessionState::Kind::needsLink: return "needsLink (waiting for a phone to scan the code)";
    case SessionState::Kind::linked: return "linked";
    case SessionState::Kind::syncing: return "syncing (WhatsApp is downloading this account's messages)";
    case SessionState::Kind::unrecognised: return "unrecognised — " + state.whatWasThere;
  }
  return {};
}

bool isSettled(const SessionState& state) { return state.kind == SessionState::Kind::linked; }

bool shouldRenavigate(const SessionState& lastObservation, std::chrono::duration<double> sinceNavigation) {
  return lastObservation.kind == SessionState::Kind::unrecognised && sinceNavigation >= renavigateAfter;
}

bool shouldAdvertise(const std::optional<SessionState>& settled, bool hostsLinkedSession) {
  if (!settled) return hostsLinkedSession;
  if (settled->kind == SessionState::Kind::linked) return true;
  if (settled->kind == SessionState::Kind::needsLink) return false;
  return hostsLinkedSession;
}

bool hostsSessionAfter(const SessionState& observing, bool previously) {
  if (observing.kind == SessionState::Kind::linked) return true;
  if (observing.kind == SessionState::Kind::needsLink) return false;
  return previously;
}

SessionState readSessionState(std::string_view answer) {
  boost::system::error_code error;
  const auto parsed = json::parse(answer, error);
  const auto* object = error ? nullptr : parsed.if_object();
  const auto* state = object ? object->if_contains("state") : nullptr;
  if (!state || !state->is_string()) return SessionState::unrecognised(std::string(unreadableSentence));
  const std::string_view name = state->as_string();
  if (name == "linked") return SessionState::linked();
  if (name == "needsLink") return SessionState::needsLink();
  if (name == "syncing") return SessionState::syncing();
  if (name == "evicted") return SessionState::unrecognised(std::string(evictedSentence));
  const auto title = oneLine(stringOf(*object, "title").value_or(""));
  return SessionState::unrecognised("title=" + (title.empty() ? std::string("(none)") : title) + " — " +
                                    oneLine(stringOf(*object, "sample").value_or("")));
}

}  // namespace quarl::WhatsAppWeb

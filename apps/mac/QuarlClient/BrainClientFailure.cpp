#include "BrainClientFailure.h"

namespace quarl {

BrainClientFailure BrainClientFailure::http(int status, std::string code, std::string message) {
  return BrainClientFailure(Http{status, std::move(code), std::move(message)});
}
BrainClientFailure BrainClientFailure::transport(std::string detail) {
  return BrainClientFailure(Transport{std::move(detail)});
}
BrainClientFailure BrainClientFailure::decoding(std::string detail) {
  return BrainClientFailure(Decoding{std::move(detail)});
}
BrainClientFailure BrainClientFailure::notSignedIn() { return BrainClientFailure(NotSignedIn{}); }
BrainClientFailure BrainClientFailure::unsendable(std::string detail) {
  return BrainClientFailure(Unsendable{std::move(detail)});
}

std::string BrainClientFailure::description() const {
  struct Describe {
    std::string operator()(const Http& h) const {
      return std::to_string(h.status) + " " + h.code + ": " + h.message;
    }
    std::string operator()(const Transport& t) const { return "Could not reach Quarl: " + t.detail; }
    std::string operator()(const Decoding& d) const { return "Quarl sent something unexpected: " + d.detail; }
    std::string operator()(const NotSignedIn&) const { return "This Mac is not signed in to Quarl."; }
    std::string operator()(const Unsendable& u) const {
      return "This Mac could not put what it had for Quarl into a request, so nothing was sent: " + u.detail + ".";
    }
  };
  return std::visit(Describe{}, value_);
}

bool BrainClientFailure::isSessionGone() const {
  if (isNotSignedIn()) return true;
  const auto* http = asHttp();
  return http && (http->code == "reuse_detected" || http->code == "invalid_token");
}

bool BrainClientFailure::refusesThisRecordOnly() const {
  const auto* http = asHttp();
  if (!http || isSessionGone() || http->code == "channel_disabled") return false;
  return http->status == 400 || http->status == 409 || http->status == 413 || http->status == 422;
}

}  // namespace quarl

#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "HttpTransport.h"

namespace quarl {

// Handing this Mac's session to the panel's web view: what an answer of the service's
// "/api/auth/companion" comes to, and what the window shows when it does not sign in.
struct PanelSession {
  enum class Outcome {
    established,   // the answer's cookies are in the view
    rateLimited,   // the cookies already in the view stay
    signInNeeded,  // the Mac's own session is over: the sign-in page is shown
    refused,
    unreachable,
  };

  static constexpr std::string_view expiredSentence =
      "This Mac's connection to Quarl has expired. Choose Sign in to reconnect it.";
  static constexpr std::string_view refusedSentence =
      "Quarl could not sign this window in just now. Everything else keeps working — try opening it again in a moment.";
  static constexpr std::string_view unreachableHeading = "Quarl cannot reach the server";
  static constexpr std::string_view unreachableText =
      "Your Mac keeps working and nothing is lost — messages are captured and will sync when the connection returns. "
      "Close this window and open it again to retry.";
  // The pause between the attempt refused with 401 and the one after renewing the token.
  static constexpr std::chrono::milliseconds attemptPause{100};
  // Where the panel window opens when the Mac is paired.
  static constexpr std::string_view appPath = "/app";

  // The address of `path` (which starts with "/") on the panel's site at `baseURL`.
  static std::string joined(std::string_view baseURL, std::string_view path);
  // The outcome of an answer with this status.
  static Outcome outcomeOf(int status);
  // The value of every Set-Cookie header, in the order they came; header names in any case.
  static std::vector<std::string> setCookieValues(const HttpHeaders& headers);
};

}  // namespace quarl

#pragma once

#include <boost/json/object.hpp>
#include <chrono>
#include <optional>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "WhatsAppCaptureRules.h"
#include "WhatsAppReadResult.h"
#include "WhatsAppSessionState.h"

namespace quarl::WhatsAppWeb {

// What one capture pass asks of the page, and the bounds it reads within.
struct CaptureInputs {
  static constexpr int chatLimit = 6;
  static constexpr int messageLimit = 40;
  static constexpr int bootstrapChats = 3;
  static constexpr std::int64_t mediaBudget = 12582912;  // 12 MiB of file bytes a pass
  static constexpr int peekChatLimit = 6;
  static constexpr int peekMessageLimit = 20;

  std::vector<std::string> known;  // the baseline: fingerprints of rows read or passed over
  bool catchUp = false;            // every conversation is being read once
  std::int64_t cursor = 0;
  std::vector<std::string> retriesSpent;
  std::vector<std::string> peek;  // chat keys due a read without opening
  boost::json::object peekWatching;

  // The capture script's named arguments.
  boost::json::object arguments() const;
};

inline constexpr std::chrono::seconds captureScriptLimit{180};

// Why a pass cannot read the page as it stands; none when it is linked. None known yet: the page
// has not finished loading.
std::optional<std::string> captureSkipReason(const std::optional<SessionState>& state);

// The capture script: the page helpers, the walk's bound, then the pass.
std::string captureScript();

// The tag the page names a message by when it asks after it: "m" and the base-36 djb2-XOR hash
// of its id.
std::string messageTag(std::string_view messageId);

// The chat keys of row fingerprints, in list order, each once.
std::vector<std::string> listedChats(const std::vector<std::string>& prints);

// The messages of a pass to hand over: not handed over already, and not among the messages a
// chat's record says reached the service before (a peek may meet ids long gone from `sent`).
std::vector<Message> toPost(const ReadResult& result, const SentMessages& sent, const PeekSchedule& schedule);

// Messages handed over before whose file the service is still owed and which came back with
// their bytes this time.
std::vector<Message> filesNowInHand(const ReadResult& result, const SentMessages& sent);

// Every conversation has been read once: the pass read the list and left no changed row for a
// later one. A chat held back for a blank row is opened again anyway, so it does not count.
bool sweepIsComplete(const ReadResult& result);

// Where the rotation starts next pass: past every chat this one tried to open.
std::int64_t cursorAfter(std::int64_t cursor, const ReadResult& result);

// The chats of messages that did not reach the service are read again next pass: an opened
// chat's print in the baseline becomes one no row matches, and a chat read without opening is
// due again at once.
void readAgain(const std::vector<Message>& unsent, std::vector<std::string>& baseline, PeekSchedule& schedule);

// What the page showed that is not an empty inbox: a line for each, said as it is.
std::vector<std::string> healthLines(const ReadResult& result);

// The schedule's part of the pass's line: chats in the slow lane, and those moved out of it.
std::string peekClauses(const PeekSchedule& schedule);

}  // namespace quarl::WhatsAppWeb

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quarl {

// Which service carries a reply: iMessage when the other side last wrote over iMessage, whatever
// the channel; otherwise the channel's own service.
struct ReplyService {
  static constexpr std::string_view theirNewestCameOverIMessage = "their newest message came over iMessage";
  static constexpr std::string_view theChannelsOwnService = "the channel's own service";

  bool isSMS = false;
  std::string_view because;

  // "SMS" or "iMessage", as a script names the service type.
  std::string_view serviceType() const { return isSMS ? "SMS" : "iMessage"; }

  static ReplyService choose(std::string_view channelKind, const std::optional<std::string>& theirNewestService);
};

}  // namespace quarl

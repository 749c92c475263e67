#include "ReplyService.h"

#include <algorithm>
#include <cctype>

namespace quarl {

ReplyService ReplyService::choose(std::string_view channelKind, const std::optional<std::string>& theirNewestService) {
  const auto isIMessage = [](const std::string& service) {
    constexpr std::string_view imessage = "imessage";
    return std::equal(service.begin(), service.end(), imessage.begin(), imessage.end(),
                      [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; });
  };
  if (theirNewestService && isIMessage(*theirNewestService)) return {false, theirNewestCameOverIMessage};
  return {channelKind == "sms", theChannelsOwnService};
}

}  // namespace quarl

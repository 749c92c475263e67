#include "MessageEvents.h"

namespace quarl {
namespace json = boost::json;

json::object MessageEvents::payload(const ChatDatabase::Receipt& receipt) {
  return json::object{{"kind", "status"}, {"status", receipt.status}, {"messageExternalId", receipt.guid}};
}

std::optional<json::object> MessageEvents::payload(const ChatDatabase::Tapback& tapback) {
  const auto meaning = ChatDatabase::tapbackMeaning(tapback.type, tapback.emoji);
  if (!meaning || tapback.targetGuid.empty()) return std::nullopt;
  json::object event{{"kind", "reaction"},
                     {"reactorKey", tapback.reactorKey},
                     {"mode", meaning->adds ? "add" : "remove"},
                     {"messageExternalId", tapback.targetGuid}};
  if (meaning->emoji) event["emoji"] = *meaning->emoji;
  return event;
}

MessageEvents::TapbackPlan MessageEvents::plan(const std::vector<ChatDatabase::Tapback>& tapbacks,
                                               std::int64_t newestRowId, SystemTime ceiling) {
  TapbackPlan plan{{}, newestRowId};
  for (const auto& tapback : tapbacks) {
    if (tapback.date > ceiling) {
      plan.advanceTo = tapback.rowId - 1;
      return plan;
    }
    plan.send.push_back(tapback);
  }
  return plan;
}

SystemTime MessageEvents::ceiling(const CaptureCursor& cursor, SystemTime now) {
  return cursor.lastMessageDate < now - std::chrono::hours(1) ? cursor.lastMessageDate : now;
}

}  // namespace quarl

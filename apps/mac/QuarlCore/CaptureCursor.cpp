#include "CaptureCursor.h"

#include <boost/json/value.hpp>

#include "DateText.h"

namespace quarl {

CaptureCursor CaptureCursor::initial(SystemTime now, int days) { return {now - std::chrono::days(days)}; }

void CaptureCursor::advance(SystemTime newest, std::chrono::seconds overlap) {
  const auto candidate = newest - overlap;
  if (candidate > lastMessageDate) lastMessageDate = candidate;
}

LiveWindow CaptureCursor::liveWindow(SystemTime now, std::chrono::seconds span) const {
  if (lastMessageDate < now - span) return {now - span, false};
  return {lastMessageDate, true};
}

boost::json::object CaptureCursor::encoded() const {
  return boost::json::object{{"lastMessageDate", iso8601(lastMessageDate)}};
}

std::optional<CaptureCursor> CaptureCursor::decoded(const boost::json::value& stored) {
  const auto* object = stored.if_object();
  if (!object) return std::nullopt;
  const auto* date = object->if_contains("lastMessageDate");
  if (!date || !date->is_string()) return std::nullopt;
  const auto instant = instantFromIso8601(date->get_string());
  if (!instant) return std::nullopt;
  return CaptureCursor{*instant};
}

}  // namespace quarl

#pragma once

#include <boost/json/object.hpp>
#include <chrono>
#include <optional>

#include "Clock.h"

namespace quarl {

// Where the next capture pass starts: the time of the newest message already handed over, less
// an overlap. It never moves backwards.
struct LiveWindow {
  SystemTime since;
  bool mayAdvanceCursor = false;
};

struct CaptureCursor {
  SystemTime lastMessageDate;

  static CaptureCursor initial(SystemTime now, int days);
  // Moves to `newest - overlap` when that is later than where the cursor is.
  void advance(SystemTime newest, std::chrono::seconds overlap);
  // The window a pass reads: from the cursor, or, after a long absence, only the last `span`,
  // without moving the cursor, so the older backlog keeps its place.
  LiveWindow liveWindow(SystemTime now, std::chrono::seconds span) const;

  // {"lastMessageDate": ISO 8601}; none when the stored value is not one.
  boost::json::object encoded() const;
  static std::optional<CaptureCursor> decoded(const boost::json::value& stored);
};

}  // namespace quarl

#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <optional>
#include <vector>

#include "CaptureCursor.h"
#include "ChatDatabase.h"

namespace quarl {

// The rules of forwarding receipts and reactions: what each looks like on the wire, how many go
// in one call, and which may go yet.
struct MessageEvents {
  struct TapbackPlan {
    std::vector<ChatDatabase::Tapback> send;
    std::int64_t advanceTo = 0;  // the row id the next pass reads after
  };

  // Consecutive slices of at most `size` items, in order.
  template <class T>
  static std::vector<std::vector<T>> batches(const std::vector<T>& items, std::size_t size) {
    std::vector<std::vector<T>> slices;
    for (std::size_t start = 0; start < items.size(); start += size) {
      slices.emplace_back(items.begin() + static_cast<std::ptrdiff_t>(start),
                          items.begin() + static_cast<std::ptrdiff_t>(std::min(items.size(), start + size)));
    }
    return slices;
  }

  static boost::json::object payload(const ChatDatabase::Receipt& receipt);
  // None when the row means nothing this companion can tell: no meaning, or no target message.
  static std::optional<boost::json::object> payload(const ChatDatabase::Tapback& tapback);

  // Walks `tapbacks` in row order and stops at the first dated after `ceiling`: those before it
  // go, and the next pass starts at that row. When none is later, all go and the next pass
  // starts after `newestRowId`.
  static TapbackPlan plan(const std::vector<ChatDatabase::Tapback>& tapbacks, std::int64_t newestRowId,
                          SystemTime ceiling);

  // Events dated after this wait, so that a reaction or receipt never reaches the service before
  // the message it belongs to: the cursor's date when capture is more than an hour behind, else now.
  static SystemTime ceiling(const CaptureCursor& cursor, SystemTime now);
};

}  // namespace quarl

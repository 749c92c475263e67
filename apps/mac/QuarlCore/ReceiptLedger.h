#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ChatDatabase.h"

namespace quarl {

// The delivery and read receipts already forwarded, so that each status of a message goes to
// the service once and a read receipt is never followed by a delivered one.
class ReceiptLedger {
 public:
  // How far the watermark trails the newest receipt forwarded, so that receipts the store
  // writes late, with an earlier time, are still read again: ten minutes, in nanoseconds.
  static constexpr std::int64_t overlap = 600'000'000'000;

  // "delivered" 1, "read" 2, anything else 0.
  static int rank(const std::string& status);

  // The receipts that say more than what was forwarded for their message.
  std::vector<ChatDatabase::Receipt> fresh(const std::vector<ChatDatabase::Receipt>& receipts) const;
  void record(const std::vector<ChatDatabase::Receipt>& receipts);
  // Moves the watermark to `changedAt - overlap` when that is later.
  void advance(std::int64_t changedAt);
  // Drops entries changed before `changedAt`.
  void forget(std::int64_t changedAt);

  // What the next receipts query asks for: changes after this.
  std::int64_t watermark() const { return watermark_; }
  std::size_t size() const { return entries_.size(); }

  boost::json::object encoded() const;
  static ReceiptLedger decoded(const boost::json::value& stored);

 private:
  struct Entry {
    int rank = 0;
    std::int64_t changedAt = 0;
  };
  std::map<std::string, Entry> entries_;
  std::int64_t watermark_ = 0;
};

}  // namespace quarl

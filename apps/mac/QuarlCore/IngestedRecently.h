#pragma once

#include <boost/json/value.hpp>
#include <map>
#include <string>

#include "Clock.h"

namespace quarl {

// The messages handed over lately, so that rows read again (the cursor's overlap, a live pass
// ahead of the cursor, a restart) are not handed over twice. Its owner keeps it in the defaults
// between launches.
class IngestedRecently {
 public:
  // The most entries kept between launches, newest first: far more than the rows a pass can
  // read ahead of the cursor, small enough to rewrite after each pass.
  static constexpr std::size_t keptMax = 2000;

  bool contains(const std::string& guid) const { return handedOver_.contains(guid); }
  void record(const std::string& guid, SystemTime at) { handedOver_[guid] = at; }
  void forget(SystemTime before);

  // {guid: milliseconds since 1970}, the newest `keptMax` entries.
  boost::json::value encoded() const;
  // Entries that are not a guid with a whole number of milliseconds are passed over.
  static IngestedRecently decoded(const boost::json::value& stored);

 private:
  std::map<std::string, SystemTime> handedOver_;
};

}  // namespace quarl

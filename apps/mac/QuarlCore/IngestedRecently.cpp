#include "IngestedRecently.h"

#include <algorithm>
#include <boost/json/object.hpp>
#include <vector>

namespace quarl {
namespace json = boost::json;
using std::chrono::milliseconds;

void IngestedRecently::forget(SystemTime before) {
  std::erase_if(handedOver_, [&](const auto& entry) { return entry.second < before; });
}

json::value IngestedRecently::encoded() const {
  std::vector<std::pair<std::string, SystemTime>> newest(handedOver_.begin(), handedOver_.end());
  std::stable_sort(newest.begin(), newest.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
  if (newest.size() > keptMax) newest.resize(keptMax);
  json::object object;
  for (const auto& [guid, at] : newest) {
    object[guid] = std::chrono::duration_cast<milliseconds>(at.time_since_epoch()).count();
  }
  return object;
}

IngestedRecently IngestedRecently::decoded(const json::value& stored) {
  IngestedRecently recently;
  const auto* object = stored.if_object();
  if (!object) return recently;
  for (const auto& [guid, at] : *object) {
    if (guid.empty() || !at.is_int64()) continue;
    recently.record(std::string(guid), SystemTime(std::chrono::duration_cast<SystemTime::duration>(milliseconds(at.get_int64()))));
  }
  return recently;
}

}  // namespace quarl

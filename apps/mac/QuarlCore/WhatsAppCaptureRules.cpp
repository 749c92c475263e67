#include "WhatsAppCaptureRules.h"

#include <algorithm>

namespace quarl::WhatsAppWeb {
namespace json = boost::json;

std::string chatKey(std::string_view print) { return std::string(print.substr(0, print.find('|'))); }

void SentMessages::record(const Message& message, bool fileOwed) {
  if (ids_.insert(message.externalId).second) order_.push_back(message.externalId);
  if (fileOwed) bytesOwed_.insert(message.externalId);
  while (order_.size() > memory) {
    ids_.erase(order_.front());
    bytesOwed_.erase(order_.front());
    order_.pop_front();
  }
}

bool SentMessages::alreadySent(const Message& message) const { return ids_.count(message.externalId) > 0; }

void SentMessages::fileDelivered(const std::string& messageId) { bytesOwed_.erase(messageId); }

json::value SentMessages::saved() const {
  json::array order(order_.begin(), order_.end());
  json::array owed(bytesOwed_.begin(), bytesOwed_.end());
  return json::object{{"order", std::move(order)}, {"bytesOwed", std::move(owed)}};
}

std::optional<SentMessages> SentMessages::restored(const json::value& saved) {
  const auto* object = saved.if_object();
  const auto* order = object ? object->if_contains("order") : nullptr;
  const auto* owed = object ? object->if_contains("bytesOwed") : nullptr;
  if (!order || !order->is_array() || !owed || !owed->is_array()) return std::nullopt;
  SentMessages sent;
  for (const auto& id : order->get_array()) {
    if (!id.is_string()) return std::nullopt;
    Message message;
    message.externalId = std::string(id.get_string());
    sent.record(message);
  }
  for (const auto& id : owed->get_array()) {
    if (!id.is_string()) return std::nullopt;
    if (sent.ids_.count(std::string(id.get_string()))) sent.bytesOwed_.insert(std::string(id.get_string()));
  }
  return sent;
}

void RetryBudget::spend(const std::string& key) { ++tries_[key]; }

bool RetryBudget::isSpent(const std::string& key) const {
  const auto found = tries_.find(key);
  return found != tries_.end() && found->second >= limit_;
}

bool RetryBudget::hasRunOut(const std::string& key) const {
  const auto found = tries_.find(key);
  return found != tries_.end() && found->second == limit_;
}

void RetryBudget::forget(const std::string& key) { tries_.erase(key); }

std::vector<std::string> RetryBudget::spent() const {
  std::vector<std::string> keys;
  for (const auto& [key, tries] : tries_) {
    if (tries >= limit_) keys.push_back(key);
  }
  return keys;
}

void RetryBudget::record(const ReadResult& result) {
  const std::set<std::string> held(result.heldBack.begin(), result.heldBack.end());
  for (const auto& key : result.heldBack) spend(key);
  for (const auto& key : result.harvested) {
    if (!held.count(key)) forget(key);
  }
}

namespace {

using std::chrono::milliseconds;

std::optional<SystemTime> timeOf(const std::map<std::string, SystemTime>& times, const std::string& key) {
  const auto found = times.find(key);
  if (found == times.end()) return std::nullopt;
  return found->second;
}

bool readSince(const std::map<std::string, SystemTime>& lastRead, const std::string& key, SystemTime now,
               std::chrono::seconds gap) {
  const auto read = timeOf(lastRead, key);
  return read && now - *read < gap;
}

void addTag(std::vector<std::string>& tags, const std::string& tag) {
  if (std::find(tags.begin(), tags.end(), tag) == tags.end()) tags.push_back(tag);
}

json::object timesSaved(const std::map<std::string, SystemTime>& times) {
  json::object saved;
  for (const auto& [key, time] : times) {
    saved[key] = std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count();
  }
  return saved;
}

json::object tagsSaved(const std::map<std::string, std::vector<std::string>>& tags) {
  json::object saved;
  for (const auto& [key, list] : tags) saved[key] = json::array(list.begin(), list.end());
  return saved;
}

bool restoreTimes(const json::object& saved, std::string_view field, std::map<std::string, SystemTime>& into) {
  const auto* value = saved.if_contains(field);
  const auto* object = value ? value->if_object() : nullptr;
  if (!object) return false;
  for (const auto& [key, value] : *object) {
    if (!value.is_int64()) return false;
    into[std::string(key)] = SystemTime(milliseconds(value.get_int64()));
  }
  return true;
}

bool restoreTags(const json::object& saved, std::string_view field, std::map<std::string, std::vector<std::string>>& into) {
  const auto* value = saved.if_contains(field);
  const auto* object = value ? value->if_object() : nullptr;
  if (!object) return false;
  for (const auto& [key, value] : *object) {
    if (!value.is_array()) return false;
    auto& tags = into[std::string(key)];
    for (const auto& tag : value.get_array()) {
      if (!tag.is_string()) return false;
      tags.emplace_back(tag.get_string());
    }
  }
  return true;
}

}  // namespace

std::vector<std::string> PeekSchedule::due(const std::vector<std::string>& listed, SystemTime now) const {
  std::vector<std::string> chosen;
  const auto taken = [&](const std::string& key) { return std::find(chosen.begin(), chosen.end(), key) != chosen.end(); };
  // Longest unread first; never read before anything read; then list order, then key.
  auto byLastRead = listed;
  std::stable_sort(byLastRead.begin(), byLastRead.end(), [&](const std::string& a, const std::string& b) {
    const auto readA = timeOf(lastRead, a);
    const auto readB = timeOf(lastRead, b);
    if (readA.has_value() != readB.has_value()) return !readA.has_value();
    if (readA && *readA != *readB) return *readA < *readB;
    return false;
  });
  for (const auto& key : byLastRead) {
    if (chosen.size() >= slowShare) break;
    const auto since = timeOf(waitingSince, key);
    if (!since || now - *since >= slowLimit || readSince(lastRead, key, now, slowInterval) || taken(key)) continue;
    chosen.push_back(key);
  }
  for (const auto& key : byLastRead) {
    if (chosen.size() >= perPass) break;
    if (readSince(lastRead, key, now, interval) || taken(key)) continue;
    chosen.push_back(key);
  }
  return chosen;
}

void PeekSchedule::record(const ReadResult& result, const std::vector<std::string>& listed, SystemTime now) {
  gaveUpLastPass = 0;
  for (const auto& key : listed) present[key] = now;
  std::vector<std::string> read = result.peeked;
  read.insert(read.end(), result.harvested.begin(), result.harvested.end());
  // A chat whose memory could not be read waits its turn like one that was read, rather than
  // taking a slot every pass as the longest unread.
  for (const auto& key : result.peekBlind) lastRead[key] = now;
  for (const auto& key : read) {
    lastRead[key] = now;
    // A chat read again holds only the waits this read found.
    if (!result.waitingTags.count(key)) {
      waitingSince.erase(key);
      waitingFor.erase(key);
    }
  }
  for (const auto& [key, tags] : result.waitingTags) {
    if (tags.empty()) continue;
    waitingSince.try_emplace(key, now);
    waitingFor[key] = tags;
  }
  for (const auto& [key, tags] : result.resolvedTags) {
    auto found = waitingFor.find(key);
    if (found == waitingFor.end()) continue;
    for (const auto& tag : tags) std::erase(found->second, tag);
    if (found->second.empty()) {
      waitingFor.erase(found);
      waitingSince.erase(key);
    }
  }
  for (auto since = waitingSince.begin(); since != waitingSince.end();) {
    if (now - since->second < slowLimit) {
      ++since;
      continue;
    }
    auto& given = abandoned[since->first];
    for (const auto& tag : waitingFor[since->first]) addTag(given, tag);
    waitingFor.erase(since->first);
    since = waitingSince.erase(since);
    ++gaveUpLastPass;
  }
  std::vector<std::string> gone;
  for (const auto& [key, seen] : present) {
    if (now - seen >= forgetAfter) gone.push_back(key);
  }
  for (const auto& key : gone) forget(key);
}

void PeekSchedule::handedOver(const Message& message, const std::string& tag) {
  if (!message.chatKey) return;
  auto& tags = handed[*message.chatKey];
  addTag(tags, tag);
  if (tags.size() > handedKept) tags.erase(tags.begin(), tags.end() - static_cast<std::ptrdiff_t>(handedKept));
}

json::object PeekSchedule::watching() const { return tagsSaved(waitingFor); }

void PeekSchedule::forget(const std::string& key) {
  lastRead.erase(key);
  present.erase(key);
  waitingSince.erase(key);
  waitingFor.erase(key);
  abandoned.erase(key);
  handed.erase(key);
}

json::value PeekSchedule::saved() const {
  return json::object{{"version", currentVersion},          {"lastRead", timesSaved(lastRead)},
                      {"present", timesSaved(present)},     {"waitingSince", timesSaved(waitingSince)},
                      {"waitingFor", tagsSaved(waitingFor)}, {"abandoned", tagsSaved(abandoned)},
                      {"handed", tagsSaved(handed)},         {"gaveUpLastPass", gaveUpLastPass}};
}

std::optional<PeekSchedule> PeekSchedule::restored(const json::value& saved) {
  const auto* object = saved.if_object();
  if (!object || !object->contains("version") || object->at("version") != currentVersion) return std::nullopt;
  PeekSchedule schedule;
  const bool whole = restoreTimes(*object, "lastRead", schedule.lastRead) &&
                     restoreTimes(*object, "present", schedule.present) &&
                     restoreTimes(*object, "waitingSince", schedule.waitingSince) &&
                     restoreTags(*object, "waitingFor", schedule.waitingFor) &&
                     restoreTags(*object, "abandoned", schedule.abandoned) &&
                     restoreTags(*object, "handed", schedule.handed);
  if (!whole) return std::nullopt;
  if (const auto* gaveUp = object->if_contains("gaveUpLastPass"); gaveUp && gaveUp->is_int64()) {
    schedule.gaveUpLastPass = static_cast<int>(gaveUp->get_int64());
  }
  return schedule;
}

bool failureIsTheChannel(std::string_view code) { return code == "channel_disabled"; }

bool failureStopsTheRest(std::string_view code) {
  return code == "reuse_detected" || code == "invalid_token" || failureIsTheChannel(code);
}

}  // namespace quarl::WhatsAppWeb

#include "RelayJournal.h"

#include <algorithm>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include "QuarlLog.h"

namespace quarl {
namespace json = boost::json;
using std::chrono::milliseconds;

namespace {

std::optional<std::string> text(const json::object& object, std::string_view name) {
  const auto* value = object.if_contains(name);
  if (!value || !value->is_string()) return std::nullopt;
  return std::string(value->get_string());
}

std::optional<RelayJournal::Report> reportFrom(const json::value* stored) {
  const auto* object = stored ? stored->if_object() : nullptr;
  const auto* ok = object ? object->if_contains("ok") : nullptr;
  if (!ok || !ok->is_bool()) return std::nullopt;
  return RelayJournal::Report{ok->get_bool(), text(*object, "failureReason"), text(*object, "providerMessageId")};
}

std::optional<RelayJournal::Entry> entryFrom(const json::value& stored) {
  const auto* object = stored.if_object();
  if (!object) return std::nullopt;
  auto jobId = text(*object, "jobId");
  auto conversation = text(*object, "conversationRef");
  auto digest = text(*object, "bodyDigest");
  const auto* expected = object->if_contains("expectedRows");
  const auto* at = object->if_contains("handedOverAt");
  if (!jobId || jobId->empty() || !conversation || !digest || !expected || !expected->is_int64() || !at ||
      !at->is_int64()) {
    return std::nullopt;
  }
  return RelayJournal::Entry{std::move(*jobId), std::move(*conversation), std::move(*digest),
                             static_cast<int>(expected->get_int64()),
                             SystemTime(std::chrono::duration_cast<SystemTime::duration>(milliseconds(at->get_int64()))),
                             reportFrom(object->if_contains("report")),
                             text(*object, "channelKind").value_or("imessage")};
}

json::object stored(const RelayJournal::Entry& entry) {
  json::object object{{"jobId", entry.jobId},
                      {"conversationRef", entry.conversationRef},
                      {"bodyDigest", entry.bodyDigest},
                      {"expectedRows", entry.expectedRows},
                      {"channelKind", entry.channelKind},
                      {"handedOverAt", std::chrono::duration_cast<milliseconds>(entry.handedOverAt.time_since_epoch()).count()}};
  if (entry.report) {
    json::object report{{"ok", entry.report->ok}};
    if (entry.report->failureReason) report["failureReason"] = *entry.report->failureReason;
    if (entry.report->providerMessageId) report["providerMessageId"] = *entry.report->providerMessageId;
    object["report"] = std::move(report);
  }
  return object;
}

}  // namespace

RelayJournal::RelayJournal(std::shared_ptr<SettingsStore> store) : store_(std::move(store)) {
  const auto kept = store_->read(key);
  const auto* array = kept ? kept->if_array() : nullptr;
  if (!array) return;
  for (const auto& element : *array) {
    if (auto entry = entryFrom(element)) entries_.push_back(std::move(*entry));
  }
}

bool RelayJournal::begin(Entry entry) {
  remove(entry.jobId);
  entry.handedOverAt = std::chrono::floor<milliseconds>(entry.handedOverAt);
  entries_.push_back(std::move(entry));
  if (save()) return true;
  entries_.pop_back();
  return false;
}

void RelayJournal::settle(std::string_view jobId, Report report) {
  for (auto& entry : entries_) {
    if (entry.jobId == jobId) entry.report = std::move(report);
  }
  if (!save()) QuarlLog::say("quarl: relay: the outcome of job " + std::string(jobId) + " could not be kept for a restart");
}

void RelayJournal::remove(std::string_view jobId) {
  const auto before = entries_.size();
  std::erase_if(entries_, [&](const Entry& entry) { return entry.jobId == jobId; });
  if (entries_.size() != before) save();
}

std::optional<RelayJournal::Entry> RelayJournal::find(std::string_view jobId) const {
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& e) { return e.jobId == jobId; });
  if (found == entries_.end()) return std::nullopt;
  return *found;
}

bool RelayJournal::save() const {
  json::array array;
  for (const auto& entry : entries_) array.push_back(stored(entry));
  return store_->write(key, std::move(array));
}

}  // namespace quarl

#include "OperatorStopLedger.h"

#include <algorithm>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <iterator>

#include "QuarlLog.h"

namespace quarl {
namespace json = boost::json;

namespace {

double secondsSince1970(SystemTime at) { return std::chrono::duration<double>(at.time_since_epoch()).count(); }

SystemTime fromSecondsSince1970(double seconds) {
  return SystemTime(std::chrono::duration_cast<SystemTime::duration>(std::chrono::duration<double>(seconds)));
}

std::optional<OperatorStopLedger::Entry> entryFrom(const json::value& stored) {
  if (!stored.is_object()) return std::nullopt;
  const auto& object = stored.get_object();
  const auto* runId = object.if_contains("runId");
  const auto* by = object.if_contains("by");
  const auto* at = object.if_contains("at");
  if (!runId || !runId->is_string() || runId->get_string().empty()) return std::nullopt;
  if (!by || !by->is_string() || !at || !at->is_number()) return std::nullopt;
  const auto* reported = object.if_contains("reported");
  return OperatorStopLedger::Entry{std::string(runId->get_string()), std::string(by->get_string()),
                                   fromSecondsSince1970(at->to_number<double>()),
                                   reported && reported->is_bool() && reported->get_bool()};
}

}  // namespace

StopReportOutcome stopReportOutcomeOf(int status) {
  if (status >= 200 && status <= 299) return StopReportOutcome::reported;
  if (status == 400 || status == 404 || status == 409 || status == 410 || status == 422) return StopReportOutcome::final;
  return StopReportOutcome::retry;
}

OperatorStopLedger::OperatorStopLedger(std::shared_ptr<SettingsStore> store) : store_(std::move(store)) {
  const auto stored = store_->read(key);
  if (!stored || !stored->is_array()) return;
  for (const auto& element : stored->get_array()) {
    if (auto entry = entryFrom(element)) entries_.push_back(std::move(*entry));
  }
}

void OperatorStopLedger::record(const std::string& runId, std::string_view by, SystemTime at) {
  std::lock_guard lock(mutex_);
  if (std::any_of(entries_.begin(), entries_.end(), [&](const Entry& e) { return e.runId == runId; })) return;
  const bool known = std::find(std::begin(byValues), std::end(byValues), by) != std::end(byValues);
  entries_.push_back(Entry{runId, std::string(known ? by : "conditions"), at, false});
  std::stable_sort(entries_.begin(), entries_.end(), [](const Entry& a, const Entry& b) { return a.at < b.at; });
  if (entries_.size() > keep) entries_.erase(entries_.begin(), entries_.end() - keep);
  save();
}

void OperatorStopLedger::markReported(const std::string& runId) {
  std::lock_guard lock(mutex_);
  for (auto& entry : entries_) {
    if (entry.runId == runId) entry.reported = true;
  }
  save();
}

std::vector<OperatorStopLedger::Entry> OperatorStopLedger::unreported() const {
  std::lock_guard lock(mutex_);
  std::vector<Entry> waiting;
  std::copy_if(entries_.begin(), entries_.end(), std::back_inserter(waiting), [](const Entry& e) { return !e.reported; });
  return waiting;
}

std::vector<std::string> OperatorStopLedger::stoppedRunIds() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> ids;
  for (const auto& entry : entries_) ids.push_back(entry.runId);
  return ids;
}

void OperatorStopLedger::save() {
  json::array stored;
  for (const auto& entry : entries_) {
    stored.push_back(json::object{
        {"runId", entry.runId}, {"by", entry.by}, {"at", secondsSince1970(entry.at)}, {"reported", entry.reported}});
  }
  if (!store_->write(key, std::move(stored))) {
    QuarlLog::say("quarl: the list of stopped operator runs could not be saved — the stops are reported while Quarl "
                  "runs, but one not yet reported would be forgotten by a restart");
  }
}

}  // namespace quarl

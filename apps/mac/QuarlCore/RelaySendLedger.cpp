#include "RelaySendLedger.h"

#include <algorithm>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <cctype>

#include "Sha256.h"
#include "Trimmed.h"

namespace quarl {
namespace json = boost::json;
using std::chrono::milliseconds;

namespace {

// Every carriage return becomes a line feed. The script sends a line feed as AppleScript's
// `return` and a carriage return as itself, so Messages stores both as carriage returns, a CR LF
// pair as two: only a character-for-character mapping gives the stored row and the job's text
// one digest.
std::string withLineFeeds(std::string_view text) {
  std::string out(text);
  std::replace(out.begin(), out.end(), '\r', '\n');
  return out;
}

std::string digitsOf(std::string_view text) {
  std::string digits;
  for (const char c : text) {
    if (c >= '0' && c <= '9') digits += c;
  }
  return digits;
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
  });
}

std::int64_t millisecondsSince1970(SystemTime at) {
  return std::chrono::duration_cast<milliseconds>(at.time_since_epoch()).count();
}

}  // namespace

RelaySendLedger::RelaySendLedger(std::shared_ptr<SettingsStore> store, std::chrono::seconds window)
    : store_(std::move(store)), window_(window) {
  load();
}

bool RelaySendLedger::sameConversation(std::string_view a, std::string_view b) {
  if (equalIgnoringCase(a, b)) return true;
  const auto left = digitsOf(a);
  const auto right = digitsOf(b);
  if (left.size() <= 6 || right.size() < 7) return false;
  return left.ends_with(right) || right.ends_with(left);
}

std::string RelaySendLedger::bodyDigest(std::string_view body) { return sha256Hex(trimmed(withLineFeeds(body))); }

// Times are kept to the millisecond, as they are stored, so that an entry read back after a
// restart is the entry that was recorded.
void RelaySendLedger::record(std::string_view conversationRef, std::string_view body, SystemTime at) {
  std::lock_guard lock(mutex_);
  std::erase_if(entries_, [&](const Entry& entry) { return entry.at < at - window_; });
  entries_.push_back({std::string(conversationRef), bodyDigest(body), std::chrono::floor<milliseconds>(at)});
  save();
}

void RelaySendLedger::withdraw(std::string_view conversationRef, std::string_view body, SystemTime at) {
  std::lock_guard lock(mutex_);
  const auto digest = bodyDigest(body);
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.at == std::chrono::floor<milliseconds>(at) && entry.bodyDigest == digest && entry.conversationRef == conversationRef;
  });
  if (found == entries_.end()) return;
  entries_.erase(found);
  save();
}

bool RelaySendLedger::claim(std::string_view conversationRef, std::string_view body, SystemTime at) {
  std::lock_guard lock(mutex_);
  const auto before = entries_.size();
  std::erase_if(entries_, [&](const Entry& entry) { return entry.at < at - window_; });
  const auto wanted = bodyDigest(body);
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.bodyDigest == wanted && sameConversation(entry.conversationRef, conversationRef);
  });
  const bool claimed = found != entries_.end();
  if (claimed) entries_.erase(found);
  if (entries_.size() != before) save();
  return claimed;
}

std::size_t RelaySendLedger::pending() const {
  std::lock_guard lock(mutex_);
  return entries_.size();
}

void RelaySendLedger::load() {
  const auto stored = store_->read(key);
  const auto* array = stored ? stored->if_array() : nullptr;
  if (!array) return;
  for (const auto& value : *array) {
    const auto* object = value.if_object();
    if (!object) continue;
    const auto* conversation = object->if_contains("conversationRef");
    const auto* digest = object->if_contains("bodyDigest");
    const auto* at = object->if_contains("at");
    if (!conversation || !conversation->is_string() || !digest || !digest->is_string() || !at || !at->is_int64()) continue;
    entries_.push_back({std::string(conversation->get_string()), std::string(digest->get_string()),
                        SystemTime(std::chrono::duration_cast<SystemTime::duration>(milliseconds(at->get_int64())))});
  }
}

void RelaySendLedger::save() const {
  json::array array;
  for (const auto& entry : entries_) {
    array.push_back(json::object{
        {"conversationRef", entry.conversationRef}, {"bodyDigest", entry.bodyDigest}, {"at", millisecondsSince1970(entry.at)}});
  }
  store_->write(key, std::move(array));
}

}  // namespace quarl

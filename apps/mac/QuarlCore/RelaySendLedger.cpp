#include "RelaySendLedger.h"

#include <algorithm>
#include <cctype>

namespace quarl {

namespace {

std::string trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\r\n\v\f");
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(" \t\r\n\v\f");
  return std::string(text.substr(first, last - first + 1));
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

}  // namespace

bool RelaySendLedger::sameConversation(std::string_view a, std::string_view b) {
  if (equalIgnoringCase(a, b)) return true;
  const auto left = digitsOf(a);
  const auto right = digitsOf(b);
  if (left.size() <= 6 || right.size() < 7) return false;
  return left.ends_with(right) || right.ends_with(left);
}

void RelaySendLedger::record(std::string_view conversationRef, std::string_view body, SystemTime at) {
  std::lock_guard lock(mutex_);
  entries_.push_back({std::string(conversationRef), trimmed(body), at});
}

bool RelaySendLedger::claim(std::string_view conversationRef, std::string_view body, SystemTime at) {
  std::lock_guard lock(mutex_);
  std::erase_if(entries_, [&](const Entry& entry) { return entry.at < at - window_; });
  const auto wanted = trimmed(body);
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.body == wanted && sameConversation(entry.conversationRef, conversationRef);
  });
  if (found == entries_.end()) return false;
  entries_.erase(found);
  return true;
}

std::size_t RelaySendLedger::pending() const {
  std::lock_guard lock(mutex_);
  return entries_.size();
}

}  // namespace quarl

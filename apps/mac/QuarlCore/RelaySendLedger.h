#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "Clock.h"
#include "SettingsStore.h"

namespace quarl {

// The sends the companion itself just made, so that the capture pass recognises their rows as
// its own instead of handing them over as messages the owner typed. Shared by the relay stage,
// which records before it hands a script to Messages, and the capture pass, which claims; every
// operation holds the lock throughout. Kept in the defaults, so that a restart between the send
// and its row's capture does not forget it; the words are kept only as their digest.
class RelaySendLedger {
 public:
  static constexpr std::string_view key = "QuarlRelaySendLedger";
  // Ten minutes: longer than any confirmation (44 s) plus the capture's next turns, short enough
  // that the owner typing the same words into the same conversation later is not swallowed.
  static constexpr std::chrono::seconds defaultWindow{600};

  explicit RelaySendLedger(std::shared_ptr<SettingsStore> store, std::chrono::seconds window = defaultWindow);

  void record(std::string_view conversationRef, std::string_view body, SystemTime at);
  // Forgets the send recorded with these very values, which Messages was never given or refused.
  void withdraw(std::string_view conversationRef, std::string_view body, SystemTime at);
  // True, and the entry is gone, when a send of the same conversation and trimmed body is
  // remembered; entries older than the window are dropped first, counted back from `at`.
  bool claim(std::string_view conversationRef, std::string_view body, SystemTime at);
  std::size_t pending() const;

  // Equal ignoring case; otherwise by digits: 7 or more on both sides, one ending the other,
  // so a number with and without its country code match. Short codes match only as text.
  static bool sameConversation(std::string_view a, std::string_view b);
  // The digest a body is known by: trimmed, with every carriage return written as a line feed,
  // since Messages stores AppleScript's `return` as a carriage return.
  static std::string bodyDigest(std::string_view body);

 private:
  struct Entry {
    std::string conversationRef;
    std::string bodyDigest;
    SystemTime at;
  };
  void load();
  void save() const;

  std::shared_ptr<SettingsStore> store_;
  std::chrono::seconds window_;
  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
};

}  // namespace quarl

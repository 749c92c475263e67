#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Clock.h"
#include "SettingsStore.h"

namespace quarl {

// The relay jobs that were handed to Messages (or to WhatsApp Web) and whose report the service has not taken yet,
// kept in the defaults so that a job is sent at most once whatever the restarts: a job written
// here is never handed to Messages again. Its owner confirms a journaled job from the store
// (rows after its instant) when the outcome was never settled, and reports it from here.
// Confined to the relay stage's executor.
class RelayJournal {
 public:
  static constexpr std::string_view key = "QuarlRelayJournal";

  struct Report {
    bool ok = false;
    std::optional<std::string> failureReason;
    std::optional<std::string> providerMessageId;
  };

  struct Entry {
    std::string jobId;
    std::string conversationRef;
    std::string bodyDigest;  // of the job's text, never the text itself
    int expectedRows = 1;
    SystemTime handedOverAt;
    std::optional<Report> report;  // none until the send's outcome is known
    std::string channelKind = "imessage";  // a WhatsApp job has no store to be confirmed from
  };

  explicit RelayJournal(std::shared_ptr<SettingsStore> store);

  // Written before the job's first script goes to Messages; false when it could not be kept,
  // and then the job must not be sent.
  bool begin(Entry entry);
  // The outcome is known; the report still has to be taken.
  void settle(std::string_view jobId, Report report);
  // The service took the report.
  void remove(std::string_view jobId);
  std::optional<Entry> find(std::string_view jobId) const;
  const std::vector<Entry>& entries() const { return entries_; }

 private:
  bool save() const;

  std::shared_ptr<SettingsStore> store_;
  std::vector<Entry> entries_;
};

}  // namespace quarl

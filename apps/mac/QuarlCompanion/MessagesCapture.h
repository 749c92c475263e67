#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/steady_timer.hpp>
#include <memory>
#include <optional>
#include <string>

#include "AttachmentOutcome.h"
#include "BrainClient.h"
#include "CaptureCursor.h"
#include "ChatDatabase.h"
#include "ChatDatabaseCaptureReport.h"
#include "ChatSnapshot.h"
#include "IngestedRecently.h"
#include "platform/CompanionHost.h"
#include "SettingsStore.h"

namespace quarl {

// Recognises the companion's own relayed sends when they reappear in the store, so that they
// are not handed over as new outbound messages.
class OwnSends {
 public:
  virtual ~OwnSends() = default;
  virtual bool claim(const ChatDatabase::Message& message) = 0;
};

// The channels a capture files under: the iMessage channel id, and the SMS one while that
// channel is connected.
struct CaptureChannels {
  std::string imessage;
  std::optional<std::string> sms;
};

// The Messages channel's capture: reading new rows from the store, handing each over, the
// files the service wants, and the receipts and reactions. Owned by the coordinator and
// confined to its executor; store reads run on a worker. Two passes never overlap: a live pass
// asked for while another runs goes after it, and the tick's capture waits for a live pass.
class MessagesCapture {
 public:
  static constexpr int initialCursorDays = 7;
  static constexpr std::chrono::seconds liveSpan{3600};
  static constexpr std::chrono::seconds cursorOverlap{5};
  static constexpr int fullPassLimit = 1000;
  static constexpr int livePassLimit = 500;

  MessagesCapture(std::shared_ptr<const Clock> clock, std::shared_ptr<SettingsStore> defaults,
                  std::shared_ptr<CompanionHost> host, std::string storePath);

  enum class End { done, sessionGone };
  // The tick's stage: the backlog from the cursor, oldest first, until it is drained; then the
  // message events, all read from one copy of the store. A pass stops at the first message the
  // service did not take for a reason that would fail every message, and the cursor stays before
  // it; a message the service refused for good is passed over. Ends with sessionGone, before the
  // message events, when this Mac's session is gone.
  //
  // Both passes look at the store's files first: when nothing was written since a pass of their
  // kind read it all and left nothing for later, under the same channels, there is nothing new to
  // find, and they end without copying or reading anything.
  boost::asio::awaitable<End> capture(BrainClient& client, CaptureChannels channels);
  // The live pass: the last hour only, newest rows first in line for the service.
  boost::asio::awaitable<void> captureRecentFirst(BrainClient& client, CaptureChannels channels);
  // Uploads the files of `message` that the service wants.
  boost::asio::awaitable<AttachmentOutcome> deliverAttachments(BrainClient& client, ChatDatabase::Message message,
                                                               std::vector<AttachmentDecision> decisions);

  void setOwnSends(std::shared_ptr<OwnSends> ownSends) { ownSends_ = std::move(ownSends); }
  const std::optional<ChatDatabaseCaptureReport>& report() const { return report_; }
  // When a pass of either kind last read messages from the store; none before the first.
  const std::optional<SystemTime>& lastReadAt() const { return lastReadAt_; }

 private:
  struct PassCounts;
  // The store as a pass last read it whole, and the channels it filed under then.
  struct ReadWhole {
    StoreFingerprint store;
    CaptureChannels channels;
    bool matches(const StoreFingerprint& seen, const CaptureChannels& now) const;
  };
  using SharedReading = std::shared_ptr<ChatDatabase::Reading>;
  // Receipts and reactions from `reading`; true when nothing was left for a later pass.
  boost::asio::awaitable<bool> captureMessageEvents(BrainClient& client, CaptureChannels channels, SharedReading reading);
  boost::asio::awaitable<bool> handOver(BrainClient& client, const CaptureChannels& channels,
                                        ChatDatabase::MessageBatch batch, PassCounts& counts, bool live);
  boost::asio::awaitable<void> liveWindowPass(BrainClient& client, const CaptureChannels& channels);
  boost::asio::awaitable<void> untilNoPassRuns();
  void passEnded();
  void rememberHandedOver();
  CaptureCursor loadCursor() const;
  void saveCursor(const CaptureCursor& cursor);

  std::shared_ptr<const Clock> clock_;
  std::shared_ptr<SettingsStore> defaults_;
  std::shared_ptr<CompanionHost> host_;
  std::string storePath_;
  std::shared_ptr<OwnSends> ownSends_;
  IngestedRecently ingested_;
  std::optional<ChatDatabaseCaptureReport> report_;
  std::optional<SystemTime> lastReadAt_;
  std::optional<ReadWhole> tickRead_, liveRead_;
  // When a pass last found nothing left to hand over: every message dated before it is with the
  // service, so receipts and reactions up to then may go even when the newest message, and so the
  // cursor, is old.
  std::optional<SystemTime> caughtUpAt_;
  bool passRunning_ = false;
  bool liveAskedWhileRunning_ = false;  // a live pass asked for during another runs after it
  std::vector<std::shared_ptr<boost::asio::steady_timer>> waitingForPass_;
};

// The ingest of one message on the channel it files under.
IngestMessage ingestMessageFor(const ChatDatabase::Message& message, const std::string& channelId,
                               const std::optional<std::string>& senderDisplayName);

// "phone" for a number, "email" for an address, none when it is neither.
std::optional<std::string> senderIdentifierKind(const std::string& identifier);

}  // namespace quarl

#pragma once

#include <boost/asio/awaitable.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BrainClient.h"
#include "Clock.h"
#include "SettingsStore.h"
#include "WhatsAppCapturePass.h"
#include "WhatsAppCaptureRules.h"
#include "WhatsAppSession.h"

namespace quarl {

// The WhatsApp channel's capture: one pass over the page each tick, what it learned kept in the
// settings (the baseline of chat-list rows, the rotation's cursor, the schedule of chats read
// without opening, whether every conversation was read once, and the ids handed over), and the
// new messages handed to the service one by one. Confined to the main executor.
class WhatsAppCapture {
 public:
  WhatsAppCapture(std::shared_ptr<const Clock> clock, std::shared_ptr<SettingsStore> defaults);

  enum class End { done, sessionGone };
  // One pass over a linked page. Ends with sessionGone when this Mac's session with the service
  // is gone; what was not handed over is read again by a later pass.
  boost::asio::awaitable<End> capture(WhatsAppSession& session, BrainClient& client, std::string channelId);
  // Hands `post` over in order, each message as one ingest with the file the service asks for.
  // A failure that would fail every message the same way leaves the rest not tried. What was
  // handed over is remembered here; `capture` saves it once its pass is over.
  boost::asio::awaitable<WhatsAppWeb::IngestPass> ingestEach(BrainClient& client, const std::string& channelId,
                                                             std::vector<WhatsAppWeb::Message> post);
  // Uploads the files owed to the service that this pass found in hand.
  boost::asio::awaitable<void> deliverOwedFiles(BrainClient& client, std::vector<WhatsAppWeb::Message> inHand);

 private:
  // Uploads the file of `message` when the service wants it; whether it is still owed.
  boost::asio::awaitable<bool> deliverFile(BrainClient& client, const WhatsAppWeb::Message& message,
                                           const std::vector<AttachmentDecision>& decisions);
  void loadOnce();
  void saveHandedOver();

  std::shared_ptr<const Clock> clock_;
  std::shared_ptr<SettingsStore> defaults_;
  bool loaded_ = false;
  WhatsAppWeb::SentMessages sent_;
  WhatsAppWeb::PeekSchedule schedule_;
  WhatsAppWeb::RetryBudget retries_;
  std::vector<std::string> listed_;  // the chat keys the list showed last pass
};

// The ingest of one WhatsApp message on the channel `channelId`; `readAt` dates a message whose
// time the page did not give.
IngestMessage ingestMessageFor(const WhatsAppWeb::Message& message, const std::string& channelId, SystemTime readAt);

}  // namespace quarl

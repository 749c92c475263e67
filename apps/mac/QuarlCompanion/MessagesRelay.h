#pragma once

#include <boost/asio/awaitable.hpp>
#include <memory>
#include <string>

#include "BrainClient.h"
#include "MessagesCapture.h"
#include "MessagesSender.h"
#include "RelayJournal.h"
#include "RelaySendLedger.h"
#include "RelaySendVerdict.h"
#include "WhatsAppSession.h"

namespace quarl {

// The relay stage: claims the sends the service asks for, stages their files, hands them to
// Messages (or, for WhatsApp, to the WhatsApp session) one job after another (one script at a time), proves from the store what really
// went, and reports it. A job is journaled before its first script goes to Messages, so that
// no restart and no second claim of the same job ever sends it again: a journaled job is
// confirmed from the store and reported instead. Owned by the coordinator and confined to its
// executor; scripts and store reads run on a worker.
class MessagesRelay {
 public:
  static constexpr int claimLimit = 5;

  MessagesRelay(std::shared_ptr<const Clock> clock, std::string storePath, std::shared_ptr<RelaySendLedger> ledger,
                std::shared_ptr<SettingsStore> defaults);

  // The jobs the journal holds from before, then the claimed ones, until `stopClaiming()`.
  boost::asio::awaitable<void> runRelayJobs(BrainClient& client);
  // Polls the store after a hand-over until the send is refused or confirmed, or time is up.
  boost::asio::awaitable<RelaySendVerdict> confirmRelayedSend(std::string conversationRef, SystemTime handedOverAt,
                                                              int expected);
  // The companion is quitting: the job in hand goes on to its report, no other job starts.
  void stopClaiming() { stopping_ = true; }
  // WhatsApp jobs go through this session; without one they are answered as not linked.
  void sendWhatsAppThrough(std::shared_ptr<WhatsAppSession> session) { whatsapp_ = std::move(session); }

 private:
  struct Sent;
  // A job's files, in its order; the sentence of the first that could not be fetched, if any.
  struct Fetched {
    std::vector<FetchedFile> files;
    std::optional<std::string> problem;
  };
  boost::asio::awaitable<void> relay(BrainClient& client, RelayJob job);
  boost::asio::awaitable<Fetched> fetchFiles(BrainClient& client, const RelayJob& job);
  boost::asio::awaitable<void> relayWhatsApp(BrainClient& client, RelayJob job);
  boost::asio::awaitable<Sent> sendReply(const RelayJob& job, const std::vector<std::string>& filePaths);
  // One script to Messages: the sentence of its failure, or none.
  boost::asio::awaitable<std::optional<std::string>> sendPart(std::string runner, std::string script,
                                                              std::string conversationRef, std::string ledgerBody,
                                                              SystemTime handedOverAt, MessagesSender::Stage stage);
  boost::asio::awaitable<void> confirmAndReport(BrainClient& client, RelayJournal::Entry entry);
  boost::asio::awaitable<RelayJournal::Report> settleFromStore(RelayJournal::Entry entry);
  boost::asio::awaitable<void> report(BrainClient& client, const std::string& jobId, RelayJournal::Report report);

  std::shared_ptr<const Clock> clock_;
  std::string storePath_;
  std::shared_ptr<RelaySendLedger> ledger_;
  RelayJournal journal_;
  std::shared_ptr<WhatsAppSession> whatsapp_;
  bool stopping_ = false;
};

// The capture's view of the ledger: a row of the owner's is the companion's own when the ledger
// remembers a send of the same words to the same conversation.
class LedgerOwnSends final : public OwnSends {
 public:
  explicit LedgerOwnSends(std::shared_ptr<RelaySendLedger> ledger) : ledger_(std::move(ledger)) {}
  bool claim(const ChatDatabase::Message& message) override {
    return ledger_->claim(message.chatIdentifier, message.text, message.date);
  }

 private:
  std::shared_ptr<RelaySendLedger> ledger_;
};

}  // namespace quarl

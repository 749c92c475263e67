#pragma once

#include <boost/asio/awaitable.hpp>
#include <memory>
#include <string>

#include "BrainClient.h"
#include "MessagesCapture.h"
#include "MessagesSender.h"
#include "RelaySendLedger.h"
#include "RelaySendVerdict.h"

namespace quarl {

// The relay stage: claims the sends the service asks for, stages their files, hands them to
// Messages one job after another (one script at a time), proves from the store what really
// went, and reports it. Owned by the coordinator and confined to its executor; scripts and
// store reads run on a worker.
class MessagesRelay {
 public:
  static constexpr int claimLimit = 5;

  MessagesRelay(std::shared_ptr<const Clock> clock, std::string storePath, std::shared_ptr<RelaySendLedger> ledger);

  boost::asio::awaitable<void> runRelayJobs(BrainClient& client);
  // Polls the store after a hand-over until the send is refused or confirmed, or time is up.
  boost::asio::awaitable<RelaySendVerdict> confirmRelayedSend(std::string conversationRef, SystemTime handedOverAt,
                                                              int expected);

 private:
  struct Sent;
  boost::asio::awaitable<void> relay(BrainClient& client, RelayJob job);
  boost::asio::awaitable<Sent> sendReply(const RelayJob& job, const std::vector<std::string>& filePaths);
  boost::asio::awaitable<void> report(BrainClient& client, const RelayJob& job, bool ok,
                                      std::optional<std::string> failureReason);

  std::shared_ptr<const Clock> clock_;
  std::string storePath_;
  std::shared_ptr<RelaySendLedger> ledger_;
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

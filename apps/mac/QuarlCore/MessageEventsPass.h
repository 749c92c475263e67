#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/json/array.hpp>
#include <functional>
#include <optional>
#include <string>

#include "ChatDatabase.h"
#include "ReceiptLedger.h"

namespace quarl {

// One pass of forwarding receipts and reactions read from the store. It owns the tapback row id
// and the receipt ledger between passes; the caller persists both after each run.
class MessageEventsPass {
 public:
  struct Channels {
    std::string imessage;
    std::optional<std::string> sms;  // none while the SMS channel is not connected
  };
  struct Summary {
    int receiptsSent = 0;
    int batchesFailed = 0;
    int tapbacksUnreadable = 0;
    int notConnected = 0;
    std::optional<std::string> tapbacksUnavailable;
    std::optional<std::string> receiptsUnavailable;
    // Something read was not sent: it waits for the ceiling, its batch failed, or a readout came
    // back full and more lies behind it. A store that has not changed still holds work.
    bool leftForLater = false;
  };
  // Sends one batch of one channel's events; true when the service took it.
  using Post = std::function<boost::asio::awaitable<bool>(std::string channelId, boost::json::array events)>;

  static constexpr int tapbackLimit = 500;
  static constexpr int receiptLimit = 2000;
  static constexpr std::size_t batchSize = 500;

  MessageEventsPass(std::int64_t tapbackRowId, ReceiptLedger ledger)
      : tapbackRowId_(tapbackRowId), ledger_(std::move(ledger)) {}

  // Forwards what `tapbacks` and `receipts` hold that may go before `ceiling`. A failed batch is
  // counted and nothing of it is recorded, so it goes again on a later pass; the tapback row id
  // and the ledger's watermark move only past what the service took.
  boost::asio::awaitable<Summary> run(ChatDatabase::TapbackReadout tapbacks, ChatDatabase::ReceiptReadout receipts,
                                      Channels channels, SystemTime ceiling, Post post);

  // "message events — 3 receipt(s) sent, 0 batch(es) failed, 1 tapback(s) unreadable, 0 on a
  // channel not connected".
  static std::string summaryLine(const Summary& summary);

  std::int64_t tapbackRowId() const { return tapbackRowId_; }
  const ReceiptLedger& ledger() const { return ledger_; }

 private:
  std::int64_t tapbackRowId_;
  ReceiptLedger ledger_;
};

}  // namespace quarl

#include "MessageEventsPass.h"

#include <map>

#include "MessageEvents.h"

namespace quarl {
namespace json = boost::json;

namespace {

// One channel's events with the receipts among them, to record once the service took them.
struct ChannelEvents {
  std::vector<json::object> events;
  std::vector<ChatDatabase::Receipt> receipts;
  std::vector<std::size_t> receiptAt;  // index in `events` of each receipt
};

struct Batch {
  std::string channelId;
  json::array events;
  std::vector<ChatDatabase::Receipt> receipts;
  bool carriesTapbacks = false;
};

const std::string* channelFor(bool isSMS, const MessageEventsPass::Channels& channels) {
  if (!isSMS) return &channels.imessage;
  return channels.sms ? &*channels.sms : nullptr;
}

std::vector<Batch> batchesOf(std::map<std::string, ChannelEvents>& byChannel, std::size_t size) {
  std::vector<Batch> batches;
  for (auto& [channelId, channel] : byChannel) {
    const auto slices = MessageEvents::batches(channel.events, size);
    std::size_t nextReceipt = 0;
    for (std::size_t slice = 0; slice < slices.size(); ++slice) {
      Batch batch{channelId, json::array(slices[slice].begin(), slices[slice].end()), {}, false};
      const auto end = (slice + 1) * size;
      std::size_t receiptsInSlice = 0;
      while (nextReceipt < channel.receipts.size() && channel.receiptAt[nextReceipt] < end) {
        batch.receipts.push_back(channel.receipts[nextReceipt++]);
        ++receiptsInSlice;
      }
      batch.carriesTapbacks = receiptsInSlice < slices[slice].size();
      batches.push_back(std::move(batch));
    }
  }
  return batches;
}

}  // namespace

boost::asio::awaitable<MessageEventsPass::Summary> MessageEventsPass::run(ChatDatabase::TapbackReadout tapbacks,
                                                                          ChatDatabase::ReceiptReadout receipts,
                                                                          Channels channels, SystemTime ceiling,
                                                                          Post post) {
  Summary summary;
  summary.tapbacksUnavailable = tapbacks.unavailableReason;
  summary.receiptsUnavailable = receipts.unavailableReason;
  std::map<std::string, ChannelEvents> byChannel;

  const auto newestRead = tapbacks.rows.empty() ? tapbackRowId_ : tapbacks.rows.back().rowId;
  const auto tapbackPlan = MessageEvents::plan(tapbacks.rows, newestRead, ceiling);
  for (const auto& tapback : tapbackPlan.send) {
    auto event = MessageEvents::payload(tapback);
    if (!event) {
      ++summary.tapbacksUnreadable;
      continue;
    }
    const auto* channel = channelFor(tapback.isSMS, channels);
    if (!channel) {
      ++summary.notConnected;
      continue;
    }
    byChannel[*channel].events.push_back(std::move(*event));
  }

  // Receipts dated after the ceiling wait; the watermark must not pass the first of them.
  std::optional<std::int64_t> firstWaiting;
  std::int64_t newestReceipt = 0;
  for (const auto& receipt : ledger_.fresh(receipts.rows)) {
    if (receipt.at > ceiling) {
      if (!firstWaiting || receipt.changedAt < *firstWaiting) firstWaiting = receipt.changedAt;
      continue;
    }
    newestReceipt = std::max(newestReceipt, receipt.changedAt);
    const auto* channel = channelFor(receipt.isSMS, channels);
    if (!channel) {
      ++summary.notConnected;
      continue;
    }
    auto& events = byChannel[*channel];
    events.receiptAt.push_back(events.events.size());
    events.receipts.push_back(receipt);
    events.events.push_back(MessageEvents::payload(receipt));
  }

  bool tapbacksTaken = true;
  bool receiptsTaken = true;
  for (auto& batch : batchesOf(byChannel, batchSize)) {
    const bool taken = co_await post(batch.channelId, std::move(batch.events));
    if (!taken) {
      ++summary.batchesFailed;
      tapbacksTaken = tapbacksTaken && !batch.carriesTapbacks;
      receiptsTaken = receiptsTaken && batch.receipts.empty();
      continue;
    }
    ledger_.record(batch.receipts);
    summary.receiptsSent += static_cast<int>(batch.receipts.size());
  }

  summary.leftForLater = summary.batchesFailed > 0 || tapbackPlan.advanceTo < newestRead || firstWaiting ||
                         tapbacks.rows.size() >= static_cast<std::size_t>(tapbackLimit) ||
                         receipts.rows.size() >= static_cast<std::size_t>(receiptLimit);
  if (tapbacksTaken) tapbackRowId_ = std::max(tapbackRowId_, tapbackPlan.advanceTo);
  if (receiptsTaken) {
    const auto reached = firstWaiting ? std::min(newestReceipt, *firstWaiting - 1) : newestReceipt;
    if (reached > 0) ledger_.advance(reached);
    ledger_.forget(ledger_.watermark());
  }
  co_return summary;
}

std::string MessageEventsPass::summaryLine(const Summary& summary) {
  return "message events — " + std::to_string(summary.receiptsSent) + " receipt(s) sent, " +
         std::to_string(summary.batchesFailed) + " batch(es) failed, " + std::to_string(summary.tapbacksUnreadable) +
         " tapback(s) unreadable, " + std::to_string(summary.notConnected) + " on a channel not connected";
}

}  // namespace quarl

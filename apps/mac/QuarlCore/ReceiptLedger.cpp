#include "ReceiptLedger.h"

#include <boost/json/value.hpp>

namespace quarl {
namespace json = boost::json;

int ReceiptLedger::rank(const std::string& status) {
  if (status == "delivered") return 1;
  if (status == "read") return 2;
  return 0;
}

std::vector<ChatDatabase::Receipt> ReceiptLedger::fresh(const std::vector<ChatDatabase::Receipt>& receipts) const {
  std::vector<ChatDatabase::Receipt> fresh;
  for (const auto& receipt : receipts) {
    const auto found = entries_.find(receipt.guid);
    const int recorded = found == entries_.end() ? 0 : found->second.rank;
    if (rank(receipt.status) > recorded) fresh.push_back(receipt);
  }
  return fresh;
}

void ReceiptLedger::record(const std::vector<ChatDatabase::Receipt>& receipts) {
  for (const auto& receipt : receipts) {
    auto& entry = entries_[receipt.guid];
    if (rank(receipt.status) >= entry.rank) entry = {rank(receipt.status), receipt.changedAt};
  }
}

void ReceiptLedger::advance(std::int64_t changedAt) { watermark_ = std::max(watermark_, changedAt - overlap); }

void ReceiptLedger::forget(std::int64_t changedAt) {
  std::erase_if(entries_, [&](const auto& entry) { return entry.second.changedAt < changedAt; });
}

json::object ReceiptLedger::encoded() const {
  json::object entries;
  for (const auto& [guid, entry] : entries_) entries[guid] = json::array{entry.rank, entry.changedAt};
  return json::object{{"watermark", watermark_}, {"entries", std::move(entries)}};
}

// A stored ledger that cannot be read starts empty: at worst some receipts are sent again,
// which the service takes as the same status twice.
ReceiptLedger ReceiptLedger::decoded(const json::value& stored) {
  ReceiptLedger ledger;
  const auto* object = stored.if_object();
  if (!object) return ledger;
  if (const auto* watermark = object->if_contains("watermark"); watermark && watermark->is_int64()) {
    ledger.watermark_ = watermark->get_int64();
  }
  const auto* entries = object->if_contains("entries");
  if (!entries || !entries->is_object()) return ledger;
  for (const auto& [guid, value] : entries->get_object()) {
    const auto* pair = value.if_array();
    if (!pair || pair->size() != 2 || !(*pair)[0].is_int64() || !(*pair)[1].is_int64()) continue;
    ledger.entries_[std::string(guid)] = {static_cast<int>((*pair)[0].get_int64()), (*pair)[1].get_int64()};
  }
  return ledger;
}

}  // namespace quarl

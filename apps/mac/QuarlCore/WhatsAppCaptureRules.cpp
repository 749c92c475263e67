#include "WhatsAppCaptureRules.h"

namespace quarl::WhatsAppWeb {
namespace json = boost::json;

std::string chatKey(std::string_view print) { return std::string(print.substr(0, print.find('|'))); }

void SentMessages::record(const Message& message, bool fileOwed) {
  if (ids_.insert(message.externalId).second) order_.push_back(message.externalId);
  if (fileOwed) bytesOwed_.insert(message.externalId);
  while (order_.size() > memory) {
    ids_.erase(order_.front());
    bytesOwed_.erase(order_.front());
    order_.pop_front();
  }
}

bool SentMessages::alreadySent(const Message& message) const { return ids_.count(message.externalId) > 0; }

void SentMessages::fileDelivered(const std::string& messageId) { bytesOwed_.erase(messageId); }

json::value SentMessages::saved() const {
  json::array order(order_.begin(), order_.end());
  json::array owed(bytesOwed_.begin(), bytesOwed_.end());
  return json::object{{"order", std::move(order)}, {"bytesOwed", std::move(owed)}};
}

std::optional<SentMessages> SentMessages::restored(const json::value& saved) {
  const auto* object = saved.if_object();
  const auto* order = object ? object->if_contains("order") : nullptr;
  const auto* owed = object ? object->if_contains("bytesOwed") : nullptr;
  if (!order || !order->is_array() || !owed || !owed->is_array()) return std::nullopt;
  SentMessages sent;
  for (const auto& id : order->get_array()) {
    if (!id.is_string()) return std::nullopt;
    Message message;
    message.externalId = std::string(id.get_string());
    sent.record(message);
  }
  for (const auto& id : owed->get_array()) {
    if (!id.is_string()) return std::nullopt;
    if (sent.ids_.count(std::string(id.get_string()))) sent.bytesOwed_.insert(std::string(id.get_string()));
  }
  return sent;
}

void RetryBudget::spend(const std::string& key) { ++tries_[key]; }

bool RetryBudget::isSpent(const std::string& key) const {
  const auto found = tries_.find(key);
  return found != tries_.end() && found->second >= limit_;
}

bool RetryBudget::hasRunOut(const std::string& key) const {
  const auto found = tries_.find(key);
  return found != tries_.end() && found->second == limit_;
}

void RetryBudget::forget(const std::string& key) { tries_.erase(key); }

std::vector<std::string> RetryBudget::spent() const {
  std::vector<std::string> keys;
  for (const auto& [key, tries] : tries_) {
    if (tries >= limit_) keys.push_back(key);
  }
  return keys;
}

void RetryBudget::record(const ReadResult& result) {
  const std::set<std::string> held(result.heldBack.begin(), result.heldBack.end());
  for (const auto& key : result.heldBack) spend(key);
  for (const auto& key : result.harvested) {
    if (!held.count(key)) forget(key);
  }
}

bool failureIsTheChannel(std::string_view code) { return code == "channel_disabled"; }

bool failureStopsTheRest(std::string_view code) {
  return code == "reuse_detected" || code == "invalid_token" || failureIsTheChannel(code);
}

}  // namespace quarl::WhatsAppWeb

#pragma once

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "WhatsAppMessage.h"
#include "WhatsAppReadResult.h"

namespace quarl::WhatsAppWeb {

// The conversation a chat-list row's fingerprint names: the part before the bar, which outlives
// every change of the row's preview line.
std::string chatKey(std::string_view print);

// The ids of the messages already handed over, the newest `memory` of them, and those whose
// file the service is still owed. Kept on disk, so that a restart hands nothing over twice.
class SentMessages {
 public:
  static constexpr std::size_t memory = 800;

  // `fileOwed`: the service asked for the message's file and has not had it yet.
  void record(const Message& message, bool fileOwed = false);
  bool alreadySent(const Message& message) const;
  // The file of `messageId` reached the service.
  void fileDelivered(const std::string& messageId);
  const std::set<std::string>& ids() const { return ids_; }
  const std::set<std::string>& bytesOwed() const { return bytesOwed_; }

  boost::json::value saved() const;
  // What `saved` wrote; none when it is not that shape.
  static std::optional<SentMessages> restored(const boost::json::value& saved);

 private:
  std::set<std::string> ids_;
  std::deque<std::string> order_;  // oldest first
  std::set<std::string> bytesOwed_;
};

// How many passes in a row a chat was opened and still showed a row with no words yet. A chat
// is opened again while its budget lasts, and baselined once it is spent.
class RetryBudget {
 public:
  static constexpr int defaultLimit = 10;

  explicit RetryBudget(int limit = defaultLimit) : limit_(limit) {}

  void spend(const std::string& key);
  bool isSpent(const std::string& key) const;
  // Spent by the last spend: the pass that used up the last try, and only that one.
  bool hasRunOut(const std::string& key) const;
  void forget(const std::string& key);
  // The keys at the limit, which the capture script no longer holds back.
  std::vector<std::string> spent() const;
  // Held-back chats spend a try; chats opened and not held back start again.
  void record(const ReadResult& result);

 private:
  int limit_;
  std::map<std::string, int> tries_;
};

// Which chats are due a read without opening, and when. Opening a chat marks it read on the
// owner's account, so unchanged chats are read from the page's memory instead: every five
// minutes, and every minute while one of their messages is still decrypting, for up to six hours.
struct PeekSchedule {
  static constexpr int currentVersion = 1;  // of the saved form
  static constexpr std::chrono::seconds interval{300};
  static constexpr std::chrono::seconds slowInterval{60};
  static constexpr std::chrono::seconds slowLimit{21600};
  static constexpr std::size_t perPass = 6;
  static constexpr std::size_t slowShare = 3;
  static constexpr std::chrono::seconds forgetAfter{604800};
  // A peek reads at most 20 messages, so older handed-over tags can never be met again.
  static constexpr std::size_t handedKept = 40;

  std::map<std::string, SystemTime> lastRead;
  std::map<std::string, SystemTime> present;
  std::map<std::string, SystemTime> waitingSince;
  std::map<std::string, std::vector<std::string>> waitingFor;
  std::map<std::string, std::vector<std::string>> abandoned;
  std::map<std::string, std::vector<std::string>> handed;
  int gaveUpLastPass = 0;

  // The chats to read without opening this pass, among `listed` (chat keys in list order): the
  // slow lane first, at most `slowShare`, then the longest unread, `perPass` in all.
  std::vector<std::string> due(const std::vector<std::string>& listed, SystemTime now) const;
  // What a pass read, what is still decrypting and what the list showed; chats not listed for
  // `forgetAfter` are dropped.
  void record(const ReadResult& result, const std::vector<std::string>& listed, SystemTime now);
  // A message of a chat reached the service.
  void handedOver(const Message& message, const std::string& tag);
  // The tags each chat is still waiting on: the capture script asks for them by name.
  boost::json::object watching() const;

  // The saved form, `QuarlWhatsappPeekSchedule`.
  boost::json::value saved() const;
  // None when `saved` is not a schedule of this version: the schedule starts afresh.
  static std::optional<PeekSchedule> restored(const boost::json::value& saved);

 private:
  void forget(const std::string& key);
};

// The outcome of handing one pass's messages over.
struct IngestPass {
  struct Failure {
    Message message;
    std::string error;
  };
  std::vector<Message> posted;
  std::vector<Failure> failed;
  std::vector<Message> notTried;  // after a failure that stops the rest: read again next pass
};

// A failure of the channel itself: every further post to it would fail the same way.
bool failureIsTheChannel(std::string_view code);
// The service's failure codes after which no further message of the pass is tried: the device's
// credentials are no longer good, or the channel is gone.
bool failureStopsTheRest(std::string_view code);

}  // namespace quarl::WhatsAppWeb

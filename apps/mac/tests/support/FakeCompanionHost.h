#pragma once

#include <map>
#include <vector>

#include "Clock.h"
#include "platform/CompanionHost.h"

namespace quarl::testing {

// A host whose Messages store reads as the test says, taking as long on the given clock as
// the test says, and which remembers what it was asked to show.
class FakeCompanionHost final : public CompanionHost {
 public:
  explicit FakeCompanionHost(std::shared_ptr<const Clock> clock) : clock_(std::move(clock)) {}

  boost::asio::awaitable<MessagesStoreReading> readMessagesStore(std::string) override {
    ++storeReads;
    if (!readDurations.empty()) {
      const auto duration = readDurations.front();
      readDurations.erase(readDurations.begin());
      co_await clock_->sleep(duration);
    }
    co_return reading;
  }
  std::optional<std::string> contactName(const std::string& handle) override {
    const auto found = contacts.find(handle);
    return found == contacts.end() ? std::nullopt : std::optional(found->second);
  }
  void showPairingCode(const std::string&, const std::string&) override {}
  void setBadge(const std::optional<std::string>& label) override { badges.push_back(label); }
  std::string hardwareDescription() override { return "test machine"; }
  OperatorCaps operatorCaps() override { return caps; }

  MessagesStoreReading reading;
  std::map<std::string, std::string> contacts;
  std::vector<std::chrono::milliseconds> readDurations;  // one per read, then instant
  int storeReads = 0;
  std::vector<std::optional<std::string>> badges;
  OperatorCaps caps;

 private:
  std::shared_ptr<const Clock> clock_;
};

// A transport that answers nothing and counts what it was asked.
class RefusingTransport final : public HttpTransport {
 public:
  boost::asio::awaitable<boost::system::result<HttpResponse, std::string>> perform(HttpRequest request) override {
    requests.push_back(request.url);
    co_return std::string("no network in this test");
  }
  std::vector<std::string> requests;
};

}  // namespace quarl::testing

#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "IngestDesk.h"
#include "OperatorDesk.h"
#include "WhatsAppStandIn.h"

namespace devbrain {

struct Request {
  std::string method;
  std::string target;                          // path and query as sent
  std::map<std::string, std::string> headers;  // names in lower case
  std::string body;
};

struct Answer {
  int status = 200;
  std::string body;
  std::string contentType = "application/json";
  std::vector<std::pair<std::string, std::string>> headers;  // beyond the content type
  std::chrono::milliseconds delay{0};
  bool drop = false;  // close the connection without answering
  // A long poll: until `holdFor` has passed, the server asks `held` again whenever devbrain
  // says something changed, and sends its answer once it has one; at the end it asks with
  // `last` true, which always answers. `body` is not used then.
  std::function<std::optional<Answer>(bool last)> held;
  std::chrono::milliseconds holdFor{0};
};

Answer jsonAnswer(int status, const boost::json::value& body);
Answer problem(int status, std::string_view code, std::string_view message);
Answer wireRule(const std::string& rule);

// A local stand-in of the service: the endpoints the companion calls, with real rotating
// tokens, in-memory state, strict wire checks and an admin surface under /admin/ for tests
// and the demo. Not thread-safe: the server calls it from one thread.
class DevBrain {
 public:
  explicit DevBrain(std::string baseURL);
  Answer handle(const Request& request);
  // Called whenever a held poll may now have its answer.
  void onChange(std::function<void()> changed) { operatorDesk_.onChange(std::move(changed)); }

 private:
  struct Device {
    std::string id;
    std::string userId;
    std::string permissionMode = "ask";
  };
  struct RefreshToken {
    std::string deviceId;
    bool used = false;
  };
  struct AccessToken {
    std::string deviceId;
    std::chrono::system_clock::time_point expiry;
  };
  struct Pairing {
    std::string userCode;
    std::string deviceCode;
    std::chrono::steady_clock::time_point expiry;
    std::string status = "pending";  // pending, approved, denied, expired
    bool withoutRefreshToken = false;
    std::optional<std::string> deviceId;
  };
  struct Fault {
    std::string path;
    int status = 500;
    std::string body;
    std::chrono::milliseconds delay{0};
    bool drop = false;
    bool pass = false;  // the real answer, only late by `delay`
    int times = 1;
    int skip = 0;  // requests to the path let through before the fault begins
  };

  Answer route(const Request& request, const std::string& path, const boost::json::object& body);
  std::optional<std::string> wireProblem(const Request& request, const std::string& path,
                                         const std::optional<boost::json::object>& body) const;
  struct TakenFault {
    Answer answer;
    bool pass = false;
  };
  std::optional<TakenFault> takeFault(const std::string& path);

  Answer refresh(const boost::json::object& body);
  Answer pairStart(const boost::json::object& body);
  Answer pairPoll(const boost::json::object& body);
  Answer heartbeat(const Device& device, const boost::json::object& body);
  Answer panelSession(const Device& device);
  Answer setPermissionMode(const Device& device, const std::string& path, const boost::json::object& body);
  Answer admin(const Request& request, const std::string& path, const boost::json::object& body);

  boost::json::object issueTokens(const std::string& deviceId);
  std::string mintAccessToken(const std::string& deviceId);
  Device& newDevice();
  Pairing* findPairing(const boost::json::object& body);

  std::string baseURL_;
  IngestDesk desk_;
  OperatorDesk operatorDesk_;
  WhatsAppStandIn whatsapp_;
  std::string signingKey_;
  std::map<std::string, Device> devices_;
  std::map<std::string, AccessToken> accessTokens_;
  std::map<std::string, RefreshToken> refreshTokens_;
  std::vector<Pairing> pairings_;
  std::deque<Fault> faults_;
  boost::json::array requestLog_;
  std::vector<std::string> connectedChannels_{"imessage", "sms", "whatsapp"};
  std::int64_t accessTtlSeconds_ = 900;
  std::int64_t pairingExpiresInSeconds_ = 600;
  std::int64_t pairingIntervalSeconds_ = 1;
  bool autoApprove_ = false;
  int refreshExchanges_ = 0;
  int counter_ = 0;
};

}  // namespace devbrain

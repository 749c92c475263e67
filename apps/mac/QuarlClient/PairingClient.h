#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/json/object.hpp>
#include <boost/system/result.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "ClientIdentity.h"
#include "Credentials.h"
#include "HttpTransport.h"

namespace quarl {

// The small unsigned client of the two pairing endpoints: it asks the service for a user
// code and then polls until the owner approves or refuses this Mac on the web.
class PairingClient {
 public:
  struct Started {
    std::string userCode;
    std::string deviceCode;
    std::string verificationUrl;
    std::int64_t expiresInSeconds = 0;
    std::int64_t intervalSeconds = 0;
  };

  struct Poll {
    enum class Status { pending, approved, denied, expired };
    Status status = Status::pending;
    std::optional<Credentials> credentials;  // set when approved
    std::optional<std::string> userId;
  };

  // Every pairing failure is one sentence for the owner.
  struct Failure {
    std::string sentence;
    const std::string& description() const { return sentence; }
  };

  template <class T>
  using Result = boost::system::result<T, Failure>;

  PairingClient(std::string baseURL, ClientIdentity identity, std::shared_ptr<HttpTransport> transport);

  // `extra` holds the Mac's identity fields, sent beside "deviceName" and "platform".
  boost::asio::awaitable<Result<Started>> start(boost::json::object extra);
  boost::asio::awaitable<Result<Poll>> poll(std::string deviceCode);

 private:
  boost::asio::awaitable<Result<boost::json::object>> post(std::string path, boost::json::object body);

  std::string baseURL_;
  ClientIdentity identity_;
  std::shared_ptr<HttpTransport> transport_;
};

}  // namespace quarl

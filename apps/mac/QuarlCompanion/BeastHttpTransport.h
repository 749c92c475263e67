#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/ssl/context.hpp>
#include <map>
#include <memory>
#include <mutex>

#include "HttpTransport.h"

namespace quarl {

// HTTP/1.1 over Boost.Beast. https:// is verified against the system's roots, with the host
// name checked and sent as SNI; plain http:// is used for this machine's loopback addresses
// only. One kept-alive connection per host is reused; requests that find it busy open their
// own. Redirects are returned, not followed. Safe to share between clients.
class BeastHttpTransport final : public HttpTransport {
 public:
  explicit BeastHttpTransport(boost::asio::any_io_executor executor);
  ~BeastHttpTransport() override;

  boost::asio::awaitable<boost::system::result<HttpResponse, std::string>> perform(HttpRequest request) override;

  struct Connection;

 private:
  std::unique_ptr<Connection> takeIdle(const std::string& origin);
  void keepIdle(const std::string& origin, std::unique_ptr<Connection> connection);

  boost::asio::any_io_executor executor_;
  boost::asio::ssl::context tls_;
  std::mutex mutex_;
  std::map<std::string, std::unique_ptr<Connection>> idle_;
};

}  // namespace quarl

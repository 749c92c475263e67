#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/system/result.hpp>
#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quarl {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

struct HttpRequest {
  std::string method;
  std::string url;
  HttpHeaders headers;
  std::optional<std::string> body;
  std::chrono::seconds timeout{60};
};

struct HttpResponse {
  int status = 0;
  HttpHeaders headers;
  std::string body;
};

// The platform's URL loading: one request, one answer. Redirects are not followed. The error
// is the loading system's own description of what went wrong ("connection refused", ...).
// Safe to share between clients; each request is independent.
class HttpTransport {
 public:
  virtual ~HttpTransport() = default;
  virtual boost::asio::awaitable<boost::system::result<HttpResponse, std::string>> perform(HttpRequest request) = 0;
};

// `path` under `baseURL`: one leading "/" of the path is dropped and the rest appended as a
// path component, so "/v1/x" and "v1/x" name the same address.
std::string serviceURL(std::string_view baseURL, std::string_view path);

}  // namespace quarl

#pragma once

#include <boost/json/parse.hpp>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "HttpTransport.h"

namespace quarl::testing {

// A service that answers each path from what the test queued for it, in order, and fails a
// request to a path with nothing queued as a transport failure. It keeps every request.
class ScriptedTransport final : public HttpTransport {
 public:
  explicit ScriptedTransport(std::string baseURL) : baseURL_(std::move(baseURL)) {}

  void answer(const std::string& path, int status, std::string body) {
    answers_[path].push_back(HttpResponse{status, {}, std::move(body)});
  }

  boost::asio::awaitable<boost::system::result<HttpResponse, std::string>> perform(HttpRequest request) override {
    const auto path = request.url.substr(baseURL_.size());
    requests.push_back(request);
    auto& queued = answers_[path];
    if (queued.empty()) co_return std::string("nothing answers " + path + " in this test");
    auto response = std::move(queued.front());
    queued.pop_front();
    co_return response;
  }

  // The JSON bodies sent to `path`, oldest first.
  std::vector<boost::json::value> bodiesTo(const std::string& path) const {
    std::vector<boost::json::value> bodies;
    for (const auto& request : requests) {
      if (request.url == baseURL_ + path) bodies.push_back(boost::json::parse(request.body.value_or("null")));
    }
    return bodies;
  }

  std::vector<HttpRequest> requests;

 private:
  std::string baseURL_;
  std::map<std::string, std::deque<HttpResponse>> answers_;
};

}  // namespace quarl::testing

#pragma once

#include <boost/json/parse.hpp>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "Clock.h"
#include "HttpTransport.h"

namespace quarl::testing {

// A service that answers each path from what the test queued for it, in order, and fails a
// request to a path with nothing queued as a transport failure. An answer may take its time on
// the test's clock. It keeps every request.
class ScriptedTransport final : public HttpTransport {
 public:
  ScriptedTransport(std::string baseURL, std::shared_ptr<const Clock> clock)
      : baseURL_(std::move(baseURL)), clock_(std::move(clock)) {}

  void answer(const std::string& path, int status, std::string body,
              std::chrono::milliseconds after = std::chrono::milliseconds(0)) {
    answers_[path].push_back(Scripted{HttpResponse{status, {}, std::move(body)}, after});
  }

  boost::asio::awaitable<boost::system::result<HttpResponse, std::string>> perform(HttpRequest request) override {
    const auto path = request.url.substr(baseURL_.size());
    requests.push_back(request);
    auto& queued = answers_[path];
    if (queued.empty()) co_return std::string("nothing answers " + path + " in this test");
    auto scripted = std::move(queued.front());
    queued.pop_front();
    if (scripted.after.count() > 0) co_await clock_->sleep(scripted.after);
    co_return std::move(scripted.response);
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
  struct Scripted {
    HttpResponse response;
    std::chrono::milliseconds after;
  };
  std::string baseURL_;
  std::shared_ptr<const Clock> clock_;
  std::map<std::string, std::deque<Scripted>> answers_;
};

}  // namespace quarl::testing

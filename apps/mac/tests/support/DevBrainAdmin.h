#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <stdexcept>
#include <string>

#include "DevBrainProcess.h"
#include "RunAwaitable.h"
#include "BeastHttpTransport.h"

namespace quarl::testing {

// The admin surface of a running devbrain, called synchronously from a test.
class DevBrainAdmin {
 public:
  explicit DevBrainAdmin(const DevBrainProcess& brain) : baseURL_(brain.baseURL()), transport_(io_.get_executor()) {}

  boost::json::value post(const std::string& path, const boost::json::value& body = boost::json::object{}) {
    return request("POST", path, boost::json::serialize(body));
  }
  boost::json::value get(const std::string& path) { return request("GET", path, std::nullopt); }

  // The requests devbrain received on the service's paths, oldest first.
  boost::json::array requests() { return get("/admin/requests").as_array(); }
  std::int64_t refreshExchanges() { return get("/admin/stats").at("refreshExchanges").as_int64(); }
  // How many requests devbrain received on `path`.
  int requestsTo(std::string_view path) {
    int count = 0;
    for (const auto& request : requests()) count += request.at("path").as_string() == path;
    return count;
  }
  // The body of the newest request to `path`, as JSON; null when there was none.
  boost::json::value lastBodyTo(std::string_view path) {
    const auto all = requests();
    for (auto request = all.rbegin(); request != all.rend(); ++request) {
      if (request->at("path").as_string() == path) return boost::json::parse(request->at("body").as_string());
    }
    return nullptr;
  }

 private:
  boost::json::value request(const std::string& method, const std::string& path, std::optional<std::string> body) {
    HttpRequest request{method, baseURL_ + path, {{"content-type", "application/json"}}, std::move(body)};
    auto response = runAwaitable(io_, transport_.perform(std::move(request)));
    if (!response || response->status != 200) throw std::runtime_error("devbrain admin call failed: " + path);
    return boost::json::parse(response->body);
  }

  std::string baseURL_;
  boost::asio::io_context io_;
  BeastHttpTransport transport_;
};

}  // namespace quarl::testing

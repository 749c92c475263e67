#pragma once

#include <array>
#include <boost/asio/awaitable.hpp>
#include <chrono>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace quarl {

// Delivers a relay job's report: at once, then again after each of the delays while it fails.
struct RelayJobReporting {
  static constexpr std::array<std::chrono::seconds, 3> attemptDelays{std::chrono::seconds(1), std::chrono::seconds(4),
                                                                    std::chrono::seconds(12)};
  struct Delivery {
    bool delivered = false;
    int attempts = 0;
    std::optional<std::string> lastFailure;
  };
  using Sleep = std::function<boost::asio::awaitable<void>(std::chrono::seconds)>;
  // One attempt: none when the service took the report, else why not.
  using Send = std::function<boost::asio::awaitable<std::optional<std::string>>()>;

  static boost::asio::awaitable<Delivery> deliver(std::span<const std::chrono::seconds> delays, Sleep sleep, Send send);
};

}  // namespace quarl

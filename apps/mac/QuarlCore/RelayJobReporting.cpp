#include "RelayJobReporting.h"

namespace quarl {

boost::asio::awaitable<RelayJobReporting::Delivery> RelayJobReporting::deliver(std::span<const std::chrono::seconds> delays,
                                                                               Sleep sleep, Send send) {
  Delivery delivery;
  for (std::size_t attempt = 0;; ++attempt) {
    ++delivery.attempts;
    delivery.lastFailure = co_await send();
    if (!delivery.lastFailure) {
      delivery.delivered = true;
      co_return delivery;
    }
    if (attempt >= delays.size()) co_return delivery;
    co_await sleep(delays[attempt]);
  }
}

}  // namespace quarl

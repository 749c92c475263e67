#pragma once

#include <boost/asio/awaitable.hpp>
#include <memory>
#include <utility>

namespace quarl {

// Awaits `work`, a coroutine of `owner`'s own, holding `owner` until it ends. A member coroutine
// spawned from a weak pointer locked only for the spawn would otherwise go on running on an
// object that may be gone.
template <class Owner, class T>
boost::asio::awaitable<T> keptAlive([[maybe_unused]] std::shared_ptr<Owner> owner, boost::asio::awaitable<T> work) {
  co_return co_await std::move(work);
}

}  // namespace quarl

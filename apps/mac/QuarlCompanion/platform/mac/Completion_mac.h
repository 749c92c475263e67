#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <functional>
#include <memory>
#include <optional>

namespace quarl {

// A value that one of the system's completion handlers hands over, awaited by a coroutine on
// the main executor. The handler may come late or never: what it hands over after the wait
// ended is dropped.
template <class T>
class Completion {
 public:
  explicit Completion(const boost::asio::any_io_executor& executor)
      : state_(std::make_shared<State>(executor)) {}

  // What the completion handler calls, once.
  std::function<void(T)> handler() const {
    return [state = state_](T value) {
      state->value = std::move(value);
      boost::asio::post(state->timer.get_executor(), [state] { state->timer.cancel(); });
    };
  }

  // The value, once handed over.
  boost::asio::awaitable<T> value() {
    co_await state_->timer.async_wait(boost::asio::as_tuple(boost::asio::use_awaitable));
    co_return std::move(*state_->value);
  }

  // The value if it is handed over within `bound`; none otherwise.
  boost::asio::awaitable<std::optional<T>> valueWithin(boost::asio::steady_timer::duration bound) {
    state_->timer.expires_after(bound);
    co_await state_->timer.async_wait(boost::asio::as_tuple(boost::asio::use_awaitable));
    co_return std::move(state_->value);
  }

 private:
  struct State {
    explicit State(const boost::asio::any_io_executor& executor)
        : timer(executor, boost::asio::steady_timer::time_point::max()) {}
    boost::asio::steady_timer timer;
    std::optional<T> value;
  };
  std::shared_ptr<State> state_;
};

}  // namespace quarl

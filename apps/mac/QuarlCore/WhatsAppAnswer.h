#pragma once

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <algorithm>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>

#include "Clock.h"

namespace quarl::WhatsAppWeb {

// A one-shot box: the first answer given (or failure) is kept and wakes the one waiter; every
// later one is refused. Confined to one executor.
template <class T>
class AnswerOnce {
 public:
  explicit AnswerOnce(boost::asio::any_io_executor executor)
      : arrived_(std::move(executor), boost::asio::steady_timer::time_point::max()) {}

  // False when an answer was already given: this one is dropped.
  bool give(T answer) {
    if (answered()) return false;
    answer_ = std::move(answer);
    arrived_.cancel();
    return true;
  }

  // The work threw: its waiter gets the exception rather than waiting for ever.
  bool fail(std::exception_ptr failure) {
    if (answered()) return false;
    failure_ = std::move(failure);
    arrived_.cancel();
    return true;
  }

  bool answered() const { return answer_.has_value() || failure_; }

  boost::asio::awaitable<T> wait() {
    while (!answered()) co_await arrived_.async_wait(boost::asio::as_tuple(boost::asio::use_awaitable));
    if (failure_) std::rethrow_exception(failure_);
    co_return *answer_;
  }

 private:
  std::optional<T> answer_;
  std::exception_ptr failure_;
  boost::asio::steady_timer arrived_;
};

namespace detail {

template <class T>
boost::asio::awaitable<void> answerWith(std::shared_ptr<AnswerOnce<T>> box, boost::asio::awaitable<T> work) {
  std::optional<T> answer;
  try {
    answer = co_await std::move(work);
  } catch (...) {
    box->fail(std::current_exception());
    co_return;
  }
  box->give(std::move(*answer));
}

// The limit is waited in slices of at most a second: a clock's sleep cannot be called off, and a
// work that answered early should not leave a three-minute timer behind it.
template <class T>
boost::asio::awaitable<void> answerAfter(std::shared_ptr<AnswerOnce<T>> box, std::shared_ptr<const Clock> clock,
                                         std::chrono::milliseconds limit, std::function<T()> orElse) {
  const auto deadline = clock->now() + limit;
  while (!box->answered() && clock->now() < deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock->now());
    co_await clock->sleep(std::min<std::chrono::milliseconds>(left, std::chrono::seconds(1)));
  }
  if (!box->answered()) box->give(orElse());
}

}  // namespace detail

// Starts `work` and resumes the caller with its answer, or with `orElse()` once `within` has
// passed on `clock`, whichever comes first. The loser is not stopped (a page script cannot be
// called back); its answer, when it comes, is dropped. No limit: the work's answer, however late.
template <class T>
boost::asio::awaitable<T> firstAnswer(std::shared_ptr<const Clock> clock, std::optional<std::chrono::milliseconds> within,
                                      std::function<T()> orElse, boost::asio::awaitable<T> work) {
  const auto executor = co_await boost::asio::this_coro::executor;
  auto box = std::make_shared<AnswerOnce<T>>(executor);
  boost::asio::co_spawn(executor, detail::answerWith(box, std::move(work)), boost::asio::detached);
  if (within) {
    boost::asio::co_spawn(executor, detail::answerAfter(box, std::move(clock), *within, std::move(orElse)),
                          boost::asio::detached);
  }
  co_return co_await box->wait();
}

}  // namespace quarl::WhatsAppWeb

#pragma once

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "OperatorWakeSignal.h"

namespace quarl {

// Races the operator link's poll against its wake signal and a time limit, and lets the link
// pause until woken. The poll that loses is not taken back (a request in flight cannot be), so
// it runs on; its answer, when it comes, goes to `late` and is otherwise dropped. Runs on the
// caller's executor, which must be the one the wake signal's waiters are posted to; `late` is
// called there too.
struct PollRace {
  enum class Winner { poll, signal, timeLimit };

  template <class T>
  struct Outcome {
    Winner winner;
    std::optional<T> answer;  // only when the poll won
  };

  template <class T>
  static boost::asio::awaitable<Outcome<T>> run(boost::asio::awaitable<T> poll, OperatorWakeSignal& wake,
                                                std::chrono::milliseconds upTo, std::function<void(T)> late = {});

  // Waits up to `upTo`, or until the signal comes: true when woken.
  static boost::asio::awaitable<bool> pause(OperatorWakeSignal& wake, std::chrono::milliseconds upTo);
};

namespace poll_race {

// Who won, settled once on the link's executor; the notifier wakes the waiting turn.
template <class T>
struct Race {
  explicit Race(boost::asio::any_io_executor executor)
      : notifier(std::move(executor), boost::asio::steady_timer::time_point::max()) {}

  void settle(PollRace::Outcome<T> outcome) {
    if (settled) return;
    settled = std::move(outcome);
    notifier.cancel();
  }

  std::optional<PollRace::Outcome<T>> settled;
  boost::asio::steady_timer notifier;
  std::function<void(T)> late;
};

template <class T>
boost::asio::awaitable<void> awaitPoll(std::shared_ptr<Race<T>> race, boost::asio::awaitable<T> poll) {
  T answer = co_await std::move(poll);
  if (race->settled) {
    if (race->late) race->late(std::move(answer));
    co_return;
  }
  race->settle({PollRace::Winner::poll, std::move(answer)});
}

// Arms the wake signal for `race`; its waiter may be called on any thread, so it posts.
template <class T>
void armFor(const std::shared_ptr<Race<T>>& race, OperatorWakeSignal& wake, std::chrono::milliseconds upTo,
            boost::asio::any_io_executor executor) {
  std::weak_ptr<Race<T>> weak = race;
  wake.arm(upTo, [weak, executor](bool woken) {
    boost::asio::post(executor, [weak, woken] {
      if (auto race = weak.lock()) race->settle({woken ? PollRace::Winner::signal : PollRace::Winner::timeLimit, {}});
    });
  });
}

template <class T>
boost::asio::awaitable<PollRace::Outcome<T>> settledOutcome(std::shared_ptr<Race<T>> race) {
  while (!race->settled) co_await race->notifier.async_wait(boost::asio::as_tuple(boost::asio::use_awaitable));
  co_return std::move(*race->settled);
}

}  // namespace poll_race

template <class T>
boost::asio::awaitable<PollRace::Outcome<T>> PollRace::run(boost::asio::awaitable<T> poll, OperatorWakeSignal& wake,
                                                           std::chrono::milliseconds upTo, std::function<void(T)> late) {
  const auto executor = co_await boost::asio::this_coro::executor;
  auto race = std::make_shared<poll_race::Race<T>>(executor);
  race->late = std::move(late);
  boost::asio::co_spawn(executor, poll_race::awaitPoll<T>(race, std::move(poll)), boost::asio::detached);
  poll_race::armFor(race, wake, upTo, executor);
  auto outcome = co_await poll_race::settledOutcome(race);
  if (outcome.winner == Winner::poll) wake.cancelWait();
  co_return outcome;
}

inline boost::asio::awaitable<bool> PollRace::pause(OperatorWakeSignal& wake, std::chrono::milliseconds upTo) {
  const auto executor = co_await boost::asio::this_coro::executor;
  auto race = std::make_shared<poll_race::Race<bool>>(executor);
  poll_race::armFor(race, wake, upTo, executor);
  const auto outcome = co_await poll_race::settledOutcome(race);
  co_return outcome.winner == Winner::signal;
}

}  // namespace quarl

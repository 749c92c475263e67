#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/execution/outstanding_work.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/prefer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace quarl {

class PrivateDisplay;

// GTK on a thread of its own, one for the whole process: GTK may only be used from the thread
// that initialised it, and the coordinator's executor must never wait on it. Work is handed over
// with `g_main_context_invoke`; its answer is posted back to the executor of the coroutine that
// awaits it.
class GtkThread {
 public:
  // The process's GTK thread, started on first use on the display `$DISPLAY` names, or, when it
  // names none, on a private Xvfb. Blocks while that starts: call it from a thread that may wait.
  // The thread; or none, with `refusal` set to the sentence that says why there is none. The
  // first answer holds for the life of the process.
  static GtkThread* shared(std::string& refusal);
  // Quits GTK's loop and waits for the thread to end, at the end of the process.
  ~GtkThread();
  GtkThread(const GtkThread&) = delete;
  GtkThread& operator=(const GtkThread&) = delete;

  // Runs `work` on the GTK thread, soon; never waits for it.
  void invoke(std::function<void()> work);
  // Runs `work` on the GTK thread and waits for it: for teardown only, never on the executor's
  // way.
  void runAndWait(std::function<void()> work);

  // Runs `work` on the GTK thread, and resumes the caller on its own executor with what `work`
  // hands to its `answer`, which it may call later, from a GTK callback. While the caller waits,
  // its executor counts the wait as outstanding work, so a loop with nothing else to do stays up.
  template <class T>
  boost::asio::awaitable<T> ask(std::function<void(std::function<void(T)> answer)> work);

 private:
  GtkThread() = default;
  // Starts the display and GTK on the new thread; the sentence of a failure, or none.
  std::optional<std::string> start();

  std::unique_ptr<PrivateDisplay> display_;  // outlives the thread: its windows are on it
  std::thread thread_;
};

// Runs `work` on a thread of its own, for what blocks, and resumes the caller on its executor
// with its answer.
template <class T>
boost::asio::awaitable<T> onOwnThread(std::function<T()> work) {
  return boost::asio::async_initiate<const boost::asio::use_awaitable_t<>&, void(T)>(
      [work = std::move(work)](auto handler) mutable {
        auto executor = boost::asio::prefer(boost::asio::get_associated_executor(handler),
                                            boost::asio::execution::outstanding_work.tracked);
        std::thread([work = std::move(work), handler = std::move(handler), executor]() mutable {
          auto value = work();
          boost::asio::post(executor, [handler = std::move(handler), value = std::move(value)]() mutable {
            std::move(handler)(std::move(value));
          });
        }).detach();
      },
      boost::asio::use_awaitable);
}

template <class T>
boost::asio::awaitable<T> GtkThread::ask(std::function<void(std::function<void(T)> answer)> work) {
    return boost::asio::async_initiate<const boost::asio::use_awaitable_t<>&, void(T)>(
        [this, work = std::move(work)](auto handler) mutable {
          using Handler = decltype(handler);
          auto waiting = std::make_shared<Handler>(std::move(handler));
          auto executor = boost::asio::prefer(boost::asio::get_associated_executor(*waiting),
                                              boost::asio::execution::outstanding_work.tracked);
          invoke([work = std::move(work), waiting, executor]() mutable {
            work([waiting, executor](T value) {
              boost::asio::post(executor, [waiting, value = std::move(value)]() mutable { (*waiting)(std::move(value)); });
            });
          });
        },
        boost::asio::use_awaitable);
}

}  // namespace quarl

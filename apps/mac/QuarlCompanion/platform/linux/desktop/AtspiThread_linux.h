#pragma once

#include <functional>
#include <optional>
#include <string>
#include <thread>

typedef struct _GMainContext GMainContext;

namespace quarl {

// The one thread that talks to AT-SPI. libatspi keeps a process-wide cache of the desktop's
// elements, fed by the accessibility bus's signals on the main context it is given; its
// questions must come from the thread that runs that context, or a signal handled on one thread
// rewrites the cache another is reading. The page host's GTK thread runs the default context,
// so AT-SPI gets a context, and a thread, of its own.
class AtspiThread {
 public:
  // How long one question to an app may take, in milliseconds.
  static constexpr int callTimeoutMs = 1000;

  // The process's AT-SPI thread, started on first use; none, with `refusal` set, when the
  // accessibility bus cannot be reached. Like AT-SPI's own state it lasts as long as the process.
  static AtspiThread* shared(std::string& refusal);
  AtspiThread(const AtspiThread&) = delete;
  AtspiThread& operator=(const AtspiThread&) = delete;

  // Runs `work` on the thread and waits for it; at once when called from the thread itself.
  void run(const std::function<void()>& work);
  // Whatever `work` answers, computed on the thread.
  template <class F>
  auto call(F&& work) {
    std::optional<decltype(work())> answer;
    run([&] { answer.emplace(work()); });
    return std::move(*answer);
  }
  // Lets go of a GObject of AT-SPI's, on the thread, without waiting.
  void release(void* object);

 private:
  AtspiThread() = default;
  std::optional<std::string> start();
  bool onThread() const { return std::this_thread::get_id() == thread_.get_id(); }

  GMainContext* context_ = nullptr;
  std::thread thread_;
};

}  // namespace quarl

#include "AtspiThread_linux.h"

#include <atspi/atspi.h>

#include <future>
#include <memory>
#include <mutex>

namespace quarl {

namespace {

gboolean runOnce(gpointer data) {
  (*static_cast<std::function<void()>*>(data))();
  return G_SOURCE_REMOVE;
}

void deleteWork(gpointer data) { delete static_cast<std::function<void()>*>(data); }

}  // namespace

AtspiThread* AtspiThread::shared(std::string& refusal) {
  static std::mutex starting;
  static AtspiThread* thread = nullptr;
  static std::optional<std::string> failed;
  const std::lock_guard held(starting);
  if (!thread && !failed) {
    auto* started = new AtspiThread();
    failed = started->start();
    if (failed) {
      delete started;
    } else {
      thread = started;
    }
  }
  if (failed) refusal = *failed;
  return thread;
}

std::optional<std::string> AtspiThread::start() {
  std::promise<std::optional<std::string>> started;
  auto ready = started.get_future();
  context_ = g_main_context_new();
  thread_ = std::thread([this, &started] {
    g_main_context_push_thread_default(context_);
    if (atspi_init() > 1) {
      g_main_context_pop_thread_default(context_);
      started.set_value("The desktop's accessibility bus could not be reached, so Quarl cannot read windows here.");
      return;
    }
    // Moves the bus's signals off the default context, which the page host's GTK thread runs.
    atspi_set_main_context(context_);
    atspi_set_timeout(callTimeoutMs, callTimeoutMs);
    started.set_value(std::nullopt);
    GMainLoop* loop = g_main_loop_new(context_, FALSE);
    g_main_loop_run(loop);
  });
  auto failure = ready.get();
  if (failure) {
    thread_.join();
    g_main_context_unref(context_);
  }
  return failure;
}

void AtspiThread::run(const std::function<void()>& work) {
  if (onThread()) {
    work();
    return;
  }
  std::promise<void> done;
  auto finished = done.get_future();
  std::exception_ptr thrown;
  auto* handed = new std::function<void()>([&] {
    try {
      work();
    } catch (...) {
      thrown = std::current_exception();
    }
    done.set_value();
  });
  g_main_context_invoke_full(context_, G_PRIORITY_DEFAULT, runOnce, handed, deleteWork);
  finished.wait();
  if (thrown) std::rethrow_exception(thrown);
}

void AtspiThread::release(void* object) {
  if (onThread()) {
    g_object_unref(object);
    return;
  }
  g_main_context_invoke_full(context_, G_PRIORITY_DEFAULT, runOnce,
                             new std::function<void()>([object] { g_object_unref(object); }), deleteWork);
}

}  // namespace quarl

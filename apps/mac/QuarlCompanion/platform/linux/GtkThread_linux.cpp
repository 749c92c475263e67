#include "GtkThread_linux.h"

#include <gtk/gtk.h>

#include <cstdlib>
#include <future>
#include <mutex>

#include "PrivateDisplay_linux.h"

namespace quarl {

namespace {

gboolean runOnce(gpointer data) {
  std::unique_ptr<std::function<void()>> work(static_cast<std::function<void()>*>(data));
  (*work)();
  return G_SOURCE_REMOVE;
}

}  // namespace

GtkThread* GtkThread::shared(std::string& refusal) {
  static std::mutex starting;
  static std::unique_ptr<GtkThread> thread;
  static std::optional<std::string> failed;
  const std::lock_guard held(starting);
  if (!thread && !failed) {
    std::unique_ptr<GtkThread> started(new GtkThread());
    failed = started->start();
    if (!failed) thread = std::move(started);
  }
  if (failed) refusal = *failed;
  return thread.get();
}

std::optional<std::string> GtkThread::start() {
  std::promise<std::optional<std::string>> started;
  auto ready = started.get_future();
  thread_ = std::thread([this, &started] {
    const char* named = std::getenv("DISPLAY");
    if (!named || !*named) {
      // Started here, so that it ends with this thread if the process is killed.
      std::string why;
      display_ = PrivateDisplay::start(why);
      if (!display_) {
        started.set_value(why);
        return;
      }
      // Before GTK starts: the page's web processes inherit both.
      ::setenv("DISPLAY", display_->name().c_str(), 1);
      ::setenv("XAUTHORITY", display_->authority().c_str(), 1);
    }
    // Only X11: under Wayland a window cannot be placed, so it could not be kept off screen.
    gdk_set_allowed_backends("x11");
    if (!gtk_init_check(nullptr, nullptr)) {
      started.set_value("GTK could not open the display " + std::string(std::getenv("DISPLAY")));
      return;
    }
    // Owning the default context before anyone may hand work over keeps g_main_context_invoke
    // from running that work on the caller's thread, which it does with a context nobody owns.
    g_main_context_acquire(nullptr);
    started.set_value(std::nullopt);
    gtk_main();
    g_main_context_release(nullptr);
  });
  auto failure = ready.get();
  if (failure) thread_.join();
  return failure;
}

GtkThread::~GtkThread() {
  if (!thread_.joinable()) return;
  invoke([] { gtk_main_quit(); });
  thread_.join();
}

void GtkThread::invoke(std::function<void()> work) {
  g_main_context_invoke(nullptr, runOnce, new std::function<void()>(std::move(work)));
}

void GtkThread::runAndWait(std::function<void()> work) {
  std::promise<void> done;
  invoke([&] {
    work();
    done.set_value();
  });
  done.get_future().wait();
}

}  // namespace quarl

#pragma once

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <boost/process/args.hpp>
#include <boost/process/child.hpp>
#include <boost/process/exe.hpp>
#include <boost/process/extend.hpp>
#include <boost/process/io.hpp>
#include <boost/process/pipe.hpp>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TemporaryDirectory.h"
#include "platform/linux/PrivateDisplay_linux.h"

namespace quarl::testing {

namespace desktop {

using Clock = std::chrono::steady_clock;

// Where PATH finds `program`; empty when it does not.
inline std::filesystem::path onPath(const std::string& program) {
  const char* path = std::getenv("PATH");
  std::stringstream folders(path ? path : "/usr/bin:/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const auto candidate = std::filesystem::path(folder) / program;
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return {};
}

// A test that crashes or is killed must not leave a bus or a window manager behind. The signal
// comes when the thread that started the child ends, so a session belongs to one thread.
struct DieWithParent : boost::process::extend::handler {
  template <class Executor>
  void on_exec_setup(Executor&) const {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  }
};

// What a child writes up to its first newline (when `oneLine`) or up to its end; none when that
// does not come before `deadline`.
inline std::optional<std::string> readFrom(int fd, Clock::time_point deadline, bool oneLine) {
  std::string text;
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return std::nullopt;
    pollfd waiting{fd, POLLIN, 0};
    const int ready = ::poll(&waiting, 1, static_cast<int>(left));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return std::nullopt;
    char c = 0;
    const auto got = ::read(fd, &c, 1);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return oneLine ? std::nullopt : std::optional<std::string>(text);
    if (oneLine && c == '\n') return text;
    text.push_back(c);
  }
}

// Asks nicely first: the accessibility bus launcher stops the bus it launched only when asked.
inline void stop(boost::process::child& child) {
  std::error_code ignored;
  if (!child.valid() || !child.running(ignored)) return;
  ::kill(child.id(), SIGTERM);
  const auto deadline = Clock::now() + std::chrono::seconds(2);
  while (child.running(ignored) && Clock::now() < deadline) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  child.terminate(ignored);
}

// The standard output of a short command that succeeded; none when it failed or hung.
inline std::optional<std::string> outputOf(const std::string& program, const std::vector<std::string>& args) {
  try {
    boost::process::pipe output;
    boost::process::child child(boost::process::exe = program, boost::process::args = args,
                                boost::process::std_out > output, boost::process::std_err > std::string("/dev/null"),
                                DieWithParent{});
    auto text = readFrom(output.native_source(), Clock::now() + std::chrono::seconds(5), false);
    if (!text) {
      std::error_code ignored;
      child.terminate(ignored);
      return std::nullopt;
    }
    child.wait();
    if (child.exit_code() != 0) return std::nullopt;
    return text;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

inline bool windowManagerOwns(const std::string& display) {
  int screenNumber = 0;
  xcb_connection_t* connection = xcb_connect(display.c_str(), &screenNumber);
  bool owned = false;
  if (!xcb_connection_has_error(connection)) {
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (int i = 0; i < screenNumber && screens.rem > 0; ++i) xcb_screen_next(&screens);
    const char name[] = "_NET_SUPPORTING_WM_CHECK";
    auto* atom = xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, sizeof name - 1, name), nullptr);
    if (atom && screens.rem > 0) {
      auto* property = xcb_get_property_reply(
          connection, xcb_get_property(connection, 0, screens.data->root, atom->atom, XCB_ATOM_WINDOW, 0, 1), nullptr);
      owned = property && xcb_get_property_value_length(property) > 0;
      std::free(property);
    }
    std::free(atom);
  }
  xcb_disconnect(connection);
  return owned;
}

}  // namespace desktop

// The test desk application on a private desktop, killed when this goes away.
class TestDesk {
 public:
  TestDesk(TestDesk&&) = default;
  TestDesk& operator=(TestDesk&&) = delete;
  TestDesk(const TestDesk&) = delete;
  TestDesk& operator=(const TestDesk&) = delete;
  ~TestDesk() {
    std::error_code ignored;
    if (child_.valid()) child_.terminate(ignored);
  }

  // Why the desk is not there to be worked; none once it said it was ready.
  const std::optional<std::string>& refusal() const { return refusal_; }
  ::pid_t pid() const { return child_.id(); }
  bool running() const {
    std::error_code ignored;
    return child_.valid() && child_.running(ignored);
  }
  // The desk's last written state; throws when there is none or it is not one JSON object.
  boost::json::object readState() const {
    std::ifstream file(stateFile_);
    if (!file) throw std::runtime_error("the test desk wrote no state to " + stateFile_.string());
    std::stringstream text;
    text << file.rdbuf();
    return std::move(boost::json::parse(text.str()).as_object());
  }

 private:
  friend class DesktopSession;
  TestDesk(std::filesystem::path stateFile, std::string refusal) : stateFile_(std::move(stateFile)), refusal_(std::move(refusal)) {}
  TestDesk(const std::string& deskPath, std::filesystem::path stateFile) : stateFile_(std::move(stateFile)) {
    try {
      child_ = boost::process::child(boost::process::exe = deskPath,
                                     boost::process::args = std::vector<std::string>{"--state", stateFile_.string()},
                                     boost::process::std_out > output_, desktop::DieWithParent{});
    } catch (const std::exception& failure) {
      refusal_ = "the test desk " + deskPath + " could not be started: " + failure.what();
      return;
    }
    const auto line = desktop::readFrom(output_.native_source(), desktop::Clock::now() + std::chrono::seconds(20), true);
    if (line == "ready") return;
    refusal_ = running() ? "the test desk " + deskPath + " did not say it was ready within 20 seconds"
                         : "the test desk " + deskPath + " ended before it was ready";
  }

  std::filesystem::path stateFile_;
  boost::process::pipe output_;
  mutable boost::process::child child_;
  std::optional<std::string> refusal_;
};

// A desktop of the test's own: an X display, a session bus, the accessibility bus and a window
// manager, so AT-SPI, focus and the active window behave as on a real desktop without touching
// the one the tests were started from. The process environment names this desktop while it
// lives and is given back afterwards; make it before the test starts any thread.
class DesktopSession {
 public:
  DesktopSession() {
    if (!startEnvironment() || !startDisplay() || !startSessionBus() || !startAccessibilityBus()) return;
    startWindowManager();
  }
  ~DesktopSession() {
    desktop::stop(windowManager_);
    desktop::stop(accessibilityBus_);
    desktop::stop(sessionBus_);
    display_.reset();
    for (auto saved = savedEnvironment_.rbegin(); saved != savedEnvironment_.rend(); ++saved) {
      if (saved->second) {
        ::setenv(saved->first.c_str(), saved->second->c_str(), 1);
      } else {
        ::unsetenv(saved->first.c_str());
      }
    }
  }
  DesktopSession(const DesktopSession&) = delete;
  DesktopSession& operator=(const DesktopSession&) = delete;

  // The sentence that says why the desktop is not complete; none when all of it runs.
  std::optional<std::string> refusal() const { return refusal_; }

  // The desk started with `--state stateFile`, once it said it was ready. It must go before
  // this session does.
  TestDesk startDesk(const std::string& deskPath, const std::filesystem::path& stateFile) {
    if (refusal_) return TestDesk(stateFile, "the test desk was not started, since " + *refusal_);
    return TestDesk(deskPath, stateFile);
  }

  // An application launcher entry that opening an application by `name` finds.
  std::filesystem::path installDesktopEntry(const std::string& name, const std::string& exec) {
    std::string file;
    for (const char c : name) {
      if (std::isalnum(static_cast<unsigned char>(c))) {
        file.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
      } else if (!file.empty() && file.back() != '-') {
        file.push_back('-');
      }
    }
    while (!file.empty() && file.back() == '-') file.pop_back();
    const auto folder = dataHome() / "applications";
    std::filesystem::create_directories(folder);
    const auto path = folder / (file + ".desktop");
    std::ofstream entry(path);
    entry << "[Desktop Entry]\nType=Application\nName=" << name << "\nExec=" << exec << "\n";
    if (!entry.flush()) throw std::runtime_error("the desktop entry " + path.string() + " could not be written");
    return path;
  }

 private:
  std::filesystem::path dataHome() const { return folder_.path() / "data"; }

  void put(const char* variable, const std::optional<std::string>& value) {
    const char* before = std::getenv(variable);
    savedEnvironment_.emplace_back(variable, before ? std::optional<std::string>(before) : std::nullopt);
    if (value) {
      ::setenv(variable, value->c_str(), 1);
    } else {
      ::unsetenv(variable);
    }
  }

  bool refuse(std::string why) {
    refusal_ = "the private desktop could not be made: " + std::move(why);
    return false;
  }

  // Every child inherits this environment, so none of them reaches the user's own desktop,
  // settings or accessibility bus.
  bool startEnvironment() {
    const auto root = folder_.path();
    std::error_code failed;
    for (const char* sub : {"runtime", "config", "cache", "data"}) {
      if (!std::filesystem::create_directories(root / sub, failed) || failed) {
        return refuse("its folders under " + root.string() + " could not be made: " + failed.message());
      }
    }
    std::filesystem::permissions(root / "runtime", std::filesystem::perms::owner_all, failed);
    if (failed) return refuse("its runtime folder could not be kept to its owner: " + failed.message());
    const char* dataDirs = std::getenv("XDG_DATA_DIRS");
    put("XDG_RUNTIME_DIR", (root / "runtime").string());
    put("XDG_CONFIG_HOME", (root / "config").string());
    put("XDG_CACHE_HOME", (root / "cache").string());
    put("XDG_DATA_HOME", dataHome().string());
    put("XDG_DATA_DIRS", dataHome().string() + ":" + (dataDirs && *dataDirs ? dataDirs : "/usr/local/share:/usr/share"));
    put("GSETTINGS_BACKEND", "memory");
    put("GDK_BACKEND", "x11");
    put("NO_AT_BRIDGE", std::nullopt);
    put("AT_SPI_BUS_ADDRESS", std::nullopt);
    put("WAYLAND_DISPLAY", std::nullopt);
    return true;
  }

  bool startDisplay() {
    std::string why;
    display_ = quarl::PrivateDisplay::start(why);
    if (!display_) return refuse(why);
    put("DISPLAY", display_->name());
    put("XAUTHORITY", display_->authority().string());
    return true;
  }

  bool startSessionBus() {
    const auto program = desktop::onPath("dbus-daemon");
    if (program.empty()) return refuse("dbus-daemon, for its session bus, is not installed");
    const auto socket = folder_.path() / "bus";
    try {
      sessionBus_ = boost::process::child(
          boost::process::exe = program.string(),
          boost::process::args = std::vector<std::string>{"--session", "--nofork", "--nopidfile",
                                                          "--address=unix:path=" + socket.string(), "--print-address=1"},
          boost::process::std_out > busOutput_, desktop::DieWithParent{});
    } catch (const std::exception& failure) {
      return refuse(std::string("dbus-daemon could not be started: ") + failure.what());
    }
    const auto address = desktop::readFrom(busOutput_.native_source(), desktop::Clock::now() + std::chrono::seconds(10), true);
    if (!address || address->empty()) return refuse("dbus-daemon gave no session bus address within 10 seconds");
    put("DBUS_SESSION_BUS_ADDRESS", *address);
    return true;
  }

  // Asking for the bus address by the well-known name alone would have the session bus start a
  // launcher of its own while ours is not yet registered; so the name's owner is asked first.
  bool startAccessibilityBus() {
    std::filesystem::path launcher;
    for (const char* candidate : {"/usr/libexec/at-spi-bus-launcher", "/usr/lib/at-spi2-core/at-spi-bus-launcher"}) {
      if (::access(candidate, X_OK) == 0) launcher = candidate;
    }
    if (launcher.empty()) return refuse("at-spi-bus-launcher, for its accessibility bus, is not installed");
    const auto dbusSend = desktop::onPath("dbus-send");
    if (dbusSend.empty()) return refuse("dbus-send, to see its accessibility bus come up, is not installed");
    try {
      accessibilityBus_ = boost::process::child(boost::process::exe = launcher.string(),
                                                boost::process::args = std::vector<std::string>{"--launch-immediately"},
                                                desktop::DieWithParent{});
    } catch (const std::exception& failure) {
      return refuse(std::string("at-spi-bus-launcher could not be started: ") + failure.what());
    }
    const std::vector<std::string> common{"--session", "--print-reply=literal", "--reply-timeout=2000"};
    auto ask = [&](std::vector<std::string> call) {
      call.insert(call.begin(), common.begin(), common.end());
      return desktop::outputOf(dbusSend.string(), call);
    };
    const bool up = cameUp(accessibilityBus_, [&] {
      const auto owned = ask({"--dest=org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.NameHasOwner",
                              "string:org.a11y.Bus"});
      if (!owned || owned->find("true") == std::string::npos) return false;
      const auto address = ask({"--dest=org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus.GetAddress"});
      return address && address->find(':') != std::string::npos;
    });
    if (up) return true;
    std::error_code ignored;
    return refuse(accessibilityBus_.running(ignored) ? "at-spi-bus-launcher gave no accessibility bus within 10 seconds"
                                                     : "at-spi-bus-launcher ended before it gave an accessibility bus");
  }

  // Whether `ready` held within 10 seconds, asked every 50 ms while `child` still runs.
  static bool cameUp(boost::process::child& child, const std::function<bool()>& ready) {
    const auto deadline = desktop::Clock::now() + std::chrono::seconds(10);
    std::error_code ignored;
    while (desktop::Clock::now() < deadline && child.running(ignored)) {
      if (ready()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
  }

  // openbox now and then fails to open a display that has just come up while other tests start
  // theirs; it is started again, three times at most, before the session is refused.
  bool startWindowManager() {
    const auto program = desktop::onPath("openbox");
    if (program.empty()) return refuse("openbox, its window manager, is not installed");
    std::error_code ignored;
    for (int attempt = 0; attempt < 3; ++attempt) {
      try {
        windowManager_ = boost::process::child(boost::process::exe = program.string(),
                                               boost::process::args = std::vector<std::string>{"--sm-disable"},
                                               desktop::DieWithParent{});
      } catch (const std::exception& failure) {
        return refuse(std::string("openbox could not be started: ") + failure.what());
      }
      if (cameUp(windowManager_, [this] { return desktop::windowManagerOwns(display_->name()); })) return true;
      if (windowManager_.running(ignored)) return refuse("openbox did not manage the display within 10 seconds");
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return refuse("openbox ended three times before it managed the display");
  }

  TemporaryDirectory folder_;
  std::vector<std::pair<std::string, std::optional<std::string>>> savedEnvironment_;
  std::unique_ptr<quarl::PrivateDisplay> display_;
  boost::process::pipe busOutput_;
  boost::process::child sessionBus_;
  boost::process::child accessibilityBus_;
  boost::process::child windowManager_;
  std::optional<std::string> refusal_;
};

}  // namespace quarl::testing

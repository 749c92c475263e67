#pragma once

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <string>

namespace quarl {

// An X display of this process's own, for a page that must render though nobody sees it: an
// Xvfb that listens on no network port and admits only holders of a cookie it was started with.
// It ends with this object, or with the thread that started it, whichever comes first.
class PrivateDisplay {
 public:
  // Blocks while Xvfb starts (a second at most): call it from a thread that may wait. The
  // display; or none, with `refusal` set to the sentence that says why there is none.
  static std::unique_ptr<PrivateDisplay> start(std::string& refusal);
  ~PrivateDisplay();

  // A private display is named in DISPLAY and XAUTHORITY from the thread that starts it, while
  // other threads may read the environment. Replacing a variable only swaps one pointer, but
  // adding one may move the whole environment under a reader; so, without a display, both are
  // made (empty) here, to be called before the process starts any thread.
  static void reserveEnvironment();
  PrivateDisplay(const PrivateDisplay&) = delete;
  PrivateDisplay& operator=(const PrivateDisplay&) = delete;

  // ":N", as DISPLAY takes it.
  const std::string& name() const { return name_; }
  // The cookie file, as XAUTHORITY takes it.
  std::filesystem::path authority() const { return folder_ / "Xauthority"; }

 private:
  PrivateDisplay(std::filesystem::path folder, pid_t server, std::string name)
      : folder_(std::move(folder)), server_(server), name_(std::move(name)) {}
  std::filesystem::path folder_;
  pid_t server_;
  std::string name_;
};

}  // namespace quarl

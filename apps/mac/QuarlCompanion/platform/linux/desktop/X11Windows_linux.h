#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

typedef struct _XDisplay Display;

namespace quarl {

// One connection to the X display, for the questions the desktop operator asks of the window
// manager: which window is active, whose it is, where it is. Calls are serialised by its lock.
class X11Windows {
 public:
  struct Rect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
  };

  // None when no display can be opened. The first call makes X errors non-fatal for the whole
  // process: a window that closes while it is asked about must not end the companion.
  static std::unique_ptr<X11Windows> open();
  // How many requests the display refused as taken by another client (a key already grabbed).
  static unsigned accessRefusals();
  ~X11Windows();
  X11Windows(const X11Windows&) = delete;
  X11Windows& operator=(const X11Windows&) = delete;

  Display* display() const { return display_; }
  std::mutex& lock() { return lock_; }

  // The process of the window the window manager holds active; none when none is.
  std::optional<std::int64_t> activeProcess();
  // The top-level windows the window manager manages, bottom to top, with their processes.
  struct Client {
    unsigned long window = 0;
    std::optional<std::int64_t> processId;
    Rect rect;  // on the screen
    bool viewable = false;
    std::string title;
  };
  std::vector<Client> clients();
  // Holds every other client of the display still while it lives: what is listed while it is
  // held is what a picture taken while it is held shows.
  class Still {
   public:
    explicit Still(X11Windows& windows);
    ~Still();
    Still(const Still&) = delete;
    Still& operator=(const Still&) = delete;

   private:
    X11Windows& windows_;
  };
  // The window of `processId` to work: the active one when it is that process's, else its top.
  std::optional<Client> frontWindowOf(std::int64_t processId);
  // The same, among windows already listed.
  std::optional<Client> frontWindowOf(std::int64_t processId, const std::vector<Client>& among);
  Rect screen();

 private:
  explicit X11Windows(Display* display) : display_(display) {}
  std::optional<std::int64_t> processOf(unsigned long window);
  std::optional<unsigned long> activeWindow();
  std::string titleOf(unsigned long window);

  Display* display_;
  std::mutex lock_;
};

}  // namespace quarl

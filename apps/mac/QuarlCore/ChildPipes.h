#pragma once

#include <signal.h>

namespace quarl {

// A pipe whose ends no child process inherits unless it is handed them; false when none could
// be made.
bool openChildPipe(int ends[2]);

// While this lives, a write to `fd` whose reader has gone fails with EPIPE instead of raising
// SIGPIPE, which would end this whole process. How depends on the system: a flag of the pipe
// where it has one, SIGPIPE held back on the calling thread where it has not.
class SigpipeHeldBack {
 public:
  explicit SigpipeHeldBack(int fd);
  ~SigpipeHeldBack();
  SigpipeHeldBack(const SigpipeHeldBack&) = delete;
  SigpipeHeldBack& operator=(const SigpipeHeldBack&) = delete;

 private:
  sigset_t pipeOnly_{};
  sigset_t previous_{};
};

}  // namespace quarl

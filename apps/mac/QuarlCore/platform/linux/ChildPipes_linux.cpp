#include "ChildPipes.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

namespace quarl {

bool openChildPipe(int ends[2]) { return ::pipe2(ends, O_CLOEXEC) == 0; }

// Linux has no flag that keeps a pipe from raising SIGPIPE, so the thread holds the signal
// back, and a pending one is taken away before the thread's mask is restored.
SigpipeHeldBack::SigpipeHeldBack(int) {
  sigemptyset(&pipeOnly_);
  sigaddset(&pipeOnly_, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &pipeOnly_, &previous_);
}

SigpipeHeldBack::~SigpipeHeldBack() {
  sigset_t pending;
  sigpending(&pending);
  if (sigismember(&pending, SIGPIPE)) {
    const timespec now{0, 0};
    ::sigtimedwait(&pipeOnly_, nullptr, &now);
  }
  ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

}  // namespace quarl

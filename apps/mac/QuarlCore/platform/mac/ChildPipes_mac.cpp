#include "ChildPipes.h"

#include <fcntl.h>
#include <unistd.h>

namespace quarl {

// macOS has no pipe2: both ends are marked close-on-exec straight after they are made.
bool openChildPipe(int ends[2]) {
  if (::pipe(ends) != 0) return false;
  if (::fcntl(ends[0], F_SETFD, FD_CLOEXEC) == 0 && ::fcntl(ends[1], F_SETFD, FD_CLOEXEC) == 0) return true;
  ::close(ends[0]);
  ::close(ends[1]);
  return false;
}

// The pipe itself is told never to raise SIGPIPE, so the thread's signals are left alone.
SigpipeHeldBack::SigpipeHeldBack(int fd) { ::fcntl(fd, F_SETNOSIGPIPE, 1); }

SigpipeHeldBack::~SigpipeHeldBack() = default;

}  // namespace quarl

#include "ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "ChildPipes.h"

extern char** environ;

namespace quarl {

namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
  int read = -1;
  int write = -1;
  bool open() {
    int ends[2];
    if (!openChildPipe(ends)) return false;
    read = ends[0];
    write = ends[1];
    return true;
  }
  void closeRead() {
    if (read >= 0) ::close(read);
    read = -1;
  }
  void closeWrite() {
    if (write >= 0) ::close(write);
    write = -1;
  }
  ~Pipe() {
    closeRead();
    closeWrite();
  }
};

// Waits up to `limit` for the child; true once it has been reaped into `status`.
bool reapWithin(pid_t child, int& status, std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  for (;;) {
    const pid_t done = ::waitpid(child, &status, WNOHANG);
    if (done == child) return true;
    if (done < 0 && errno != EINTR) return true;
    if (Clock::now() >= deadline) return false;
    ::usleep(10'000);
  }
}

}  // namespace

ChildOutcome runChild(const std::string& executable, const std::vector<std::string>& arguments, const std::string& input,
                      std::chrono::milliseconds timeout, std::chrono::milliseconds grace) {
  ChildOutcome outcome;
  Pipe in, out, err;
  if (!in.open() || !out.open() || !err.open()) return outcome;
  const SigpipeHeldBack sigpipe(in.write);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.read, 0);
  posix_spawn_file_actions_adddup2(&actions, out.write, 1);
  posix_spawn_file_actions_adddup2(&actions, err.write, 2);
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(executable.c_str()));
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t child = 0;
  const int spawned = ::posix_spawn(&child, executable.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return outcome;
  outcome.started = true;
  in.closeRead();
  out.closeWrite();
  err.closeWrite();

  // A child that stops reading must not block us: its input is written as it is taken.
  ::fcntl(in.write, F_SETFL, O_NONBLOCK);
  std::size_t written = 0;
  if (input.empty()) in.closeWrite();
  const auto deadline = Clock::now() + timeout;
  char buffer[4096];
  while (out.read >= 0 || err.read >= 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) {
      outcome.timedOut = true;
      break;
    }
    pollfd fds[3] = {{out.read, POLLIN, 0}, {err.read, POLLIN, 0}, {in.write, POLLOUT, 0}};
    if (::poll(fds, 3, static_cast<int>(std::min<long long>(left.count(), 100))) < 0 && errno != EINTR) break;
    if (in.write >= 0 && (fds[2].revents & (POLLOUT | POLLERR | POLLHUP))) {
      const auto sent = ::write(in.write, input.data() + written, input.size() - written);
      if (sent > 0) written += static_cast<std::size_t>(sent);
      if (sent < 0 && errno != EAGAIN) written = input.size();
      if (written == input.size()) in.closeWrite();
    }
    for (int i = 0; i < 2; ++i) {
      auto& pipe = i == 0 ? out : err;
      if (pipe.read < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      const auto got = ::read(pipe.read, buffer, sizeof buffer);
      if (got > 0) {
        (i == 0 ? outcome.output : outcome.errors).append(buffer, static_cast<std::size_t>(got));
      } else if (got == 0 || errno != EAGAIN) {
        pipe.closeRead();
      }
    }
  }
  in.closeWrite();

  int status = 0;
  // A child that closed its output may still be running: it has what is left of its time.
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  if (!outcome.timedOut && !reapWithin(child, status, std::max(left, std::chrono::milliseconds(0)))) {
    outcome.timedOut = true;
  }
  if (outcome.timedOut) {
    ::kill(child, SIGTERM);
    if (!reapWithin(child, status, grace)) {
      ::kill(child, SIGKILL);
      reapWithin(child, status, std::chrono::seconds(5));
    }
    return outcome;
  }
  if (WIFEXITED(status)) outcome.exitCode = WEXITSTATUS(status);
  return outcome;
}

}  // namespace quarl

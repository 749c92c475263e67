#include "PrivateDisplay_linux.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "RandomText.h"

namespace quarl {

namespace {

constexpr int startBoundMs = 10000;

bool onPath(const std::string& program) {
  const char* path = std::getenv("PATH");
  std::string folders = path ? path : "/usr/bin:/bin";
  std::size_t start = 0;
  while (start <= folders.size()) {
    const auto end = std::min(folders.find(':', start), folders.size());
    const auto candidate = std::filesystem::path(folders.substr(start, end - start)) / program;
    if (::access(candidate.c_str(), X_OK) == 0) return true;
    start = end + 1;
  }
  return false;
}

// Starts `argv` with `keepOpen` inherited and no other descriptor of this process: a server that
// outlives a connection it inherited would keep that connection open for its peer.
pid_t spawn(const std::vector<std::string>& argv, int keepOpen) {
  std::vector<char*> args;
  for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  const pid_t child = ::fork();
  if (child != 0) return child;
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (keepOpen > STDERR_FILENO) {
    ::close_range(STDERR_FILENO + 1, keepOpen - 1, 0);
    ::close_range(keepOpen + 1, ~0U, 0);
    ::fcntl(keepOpen, F_SETFD, 0);
  } else {
    ::close_range(STDERR_FILENO + 1, ~0U, 0);
  }
  const int devnull = ::open("/dev/null", O_RDWR);
  ::dup2(devnull, STDIN_FILENO);
  ::dup2(devnull, STDOUT_FILENO);
  ::dup2(devnull, STDERR_FILENO);
  ::execvp(args[0], args.data());
  ::_exit(127);
}

bool ranWell(const std::vector<std::string>& argv) {
  const pid_t child = spawn(argv, -1);
  if (child < 0) return false;
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The display number Xvfb writes once it listens; empty when it wrote none in time.
std::string readDisplayNumber(int fd) {
  std::string number;
  pollfd waiting{fd, POLLIN, 0};
  while (::poll(&waiting, 1, startBoundMs) > 0) {
    char c = 0;
    if (::read(fd, &c, 1) != 1 || c == '\n') break;
    number.push_back(c);
  }
  return number;
}

void stop(pid_t server) {
  ::kill(server, SIGTERM);
  while (::waitpid(server, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace

void PrivateDisplay::reserveEnvironment() {
  const char* display = std::getenv("DISPLAY");
  if (display && *display) return;
  ::setenv("DISPLAY", "", 1);
  ::setenv("XAUTHORITY", "", 0);
}

std::unique_ptr<PrivateDisplay> PrivateDisplay::start(std::string& refusal) {
  if (!onPath("Xvfb") || !onPath("xauth")) {
    refusal = "this computer has no display (DISPLAY is not set), and Xvfb and xauth, which would give the page one of its own, are not installed";
    return nullptr;
  }
  char pattern[] = "/tmp/quarl-display-XXXXXX";
  if (!::mkdtemp(pattern)) {
    refusal = "no folder could be made for a private display: " + std::string(std::strerror(errno));
    return nullptr;
  }
  const std::filesystem::path folder(pattern);
  const auto authority = (folder / "Xauthority").string();
  const auto cookie = randomHex(16);
  const auto failed = [&](std::string why) {
    std::filesystem::remove_all(folder);
    refusal = "Xvfb, started to give the page a display of its own, " + why;
    return nullptr;
  };
  // The server admits every cookie its file holds, whatever display the entry names; clients
  // look theirs up by display number, added once Xvfb has chosen one.
  if (!ranWell({"xauth", "-q", "-f", authority, "add", ":0", ".", cookie})) return failed("had no cookie: xauth failed");
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return failed("could not be asked its display: " + std::string(std::strerror(errno)));
  const pid_t server = spawn({"Xvfb", "-displayfd", std::to_string(fds[1]), "-nolisten", "tcp", "-auth", authority,
                              "-screen", "0", "1440x900x24"},
                             fds[1]);
  ::close(fds[1]);
  const auto number = readDisplayNumber(fds[0]);
  ::close(fds[0]);
  if (server < 0 || number.empty()) {
    if (server > 0) stop(server);
    return failed("did not start within " + std::to_string(startBoundMs / 1000) + " seconds");
  }
  const auto name = ":" + number;
  if (!ranWell({"xauth", "-q", "-f", authority, "add", name, ".", cookie})) {
    stop(server);
    return failed("had no cookie for its display: xauth failed");
  }
  return std::unique_ptr<PrivateDisplay>(new PrivateDisplay(folder, server, name));
}

PrivateDisplay::~PrivateDisplay() {
  stop(server_);
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

}  // namespace quarl

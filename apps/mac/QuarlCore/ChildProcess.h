#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace quarl {

// How a child process ended.
struct ChildOutcome {
  bool started = false;       // false when the executable could not be run at all
  bool timedOut = false;      // it was still running at the limit and was ended
  std::optional<int> exitCode;  // none when a signal ended it
  std::string output;
  std::string errors;
};

// Runs `executable` with `arguments`, writes `input` to its standard input and closes it, and
// collects standard output and error until it exits. Still running after `timeout`, it is sent
// SIGTERM, and SIGKILL if it has not gone `grace` later. Blocks the calling thread: run it on a
// worker.
ChildOutcome runChild(const std::string& executable, const std::vector<std::string>& arguments, const std::string& input,
                      std::chrono::milliseconds timeout, std::chrono::milliseconds grace);

}  // namespace quarl

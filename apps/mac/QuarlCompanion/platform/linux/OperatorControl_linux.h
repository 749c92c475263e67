#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quarl {

// How `quarl-companion operator-stop` and `quarl-companion operator on|off` reach the running
// host: a Unix socket, for the owner only, in the config folder. They are the headless host's
// "Stop operating this Mac" menu entry and its operator switch. The host's side runs on the
// main executor; each command is one line, each answer one sentence.
class OperatorControl {
 public:
  struct Commands {
    // Stops the live run; the run that was stopped, or none when none was live.
    std::function<std::optional<std::string>()> stop;
    // Switches operator mode on or off; whether the choice was saved.
    std::function<bool(bool on)> allow;
  };

  static std::filesystem::path socketPath(const std::filesystem::path& configDirectory);
  static std::string switchedSentence(bool on);

  OperatorControl(boost::asio::any_io_executor executor, std::filesystem::path socket, Commands commands);
  ~OperatorControl();

  // Starts answering; the sentence of why it cannot, or none.
  std::optional<std::string> listen();

  // The command's side: sends `command` ("stop", "on" or "off") to the running host. Its
  // sentence, or none when no host answers.
  static std::optional<std::string> ask(const std::filesystem::path& socket, const std::string& command);

  struct Listener;  // the listening socket, shared with the loop that answers on it

 private:
  boost::asio::any_io_executor executor_;
  std::filesystem::path socket_;
  Commands commands_;
  std::shared_ptr<Listener> listener_;
};

}  // namespace quarl

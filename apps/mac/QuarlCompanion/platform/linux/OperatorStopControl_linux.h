#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quarl {

// How `quarl-companion operator-stop` reaches the running host: a Unix socket, for the owner
// only, in the config folder. It is the headless host's "Stop operating this Mac" menu entry.
// The host's side runs on the main executor.
class OperatorStopControl {
 public:
  // Stops the live run; the run that was stopped, or none when none was live.
  using Stop = std::function<std::optional<std::string>()>;

  static std::filesystem::path socketPath(const std::filesystem::path& configDirectory);

  OperatorStopControl(boost::asio::any_io_executor executor, std::filesystem::path socket, Stop stop);
  ~OperatorStopControl();

  // Starts answering; the sentence of why it cannot, or none.
  std::optional<std::string> listen();

  // The command's side: asks the running host to stop and gives its answer, or the sentence
  // for a computer where no host answers.
  struct Answer {
    bool answered = false;
    std::string sentence;
  };
  static Answer ask(const std::filesystem::path& socket);

  struct Listener;  // the listening socket, shared with the loop that answers on it

 private:
  boost::asio::any_io_executor executor_;
  std::filesystem::path socket_;
  Stop stop_;
  std::shared_ptr<Listener> listener_;
};

}  // namespace quarl

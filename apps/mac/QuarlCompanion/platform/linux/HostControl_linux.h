#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace quarl {

// How `quarl-companion operator-stop`, `operator on|off` and `sign-out` reach the running host: a
// Unix socket, for the owner only, in the config folder. They are the headless host's "Stop
// operating this Mac" menu entry, its operator switch and its sign-out, carried out by the host
// that holds the session in memory. The host's side runs on the main executor; each command is
// one line, each answer one sentence, except `whatsapp-link`, whose answer is every line the
// linking says until it ends, since only the running host may own WhatsApp's page.
class HostControl {
 public:
  struct Commands {
    // Stops the live run; the run that was stopped, or none when none was live.
    std::function<std::optional<std::string>()> stop;
    // Switches operator mode on or off; whether the choice was saved.
    std::function<bool(bool on)> allow;
    // Forgets this computer's credentials.
    std::function<void()> signOut;
    // Links WhatsApp, handing each piece of its progress to `say` as it happens.
    std::function<boost::asio::awaitable<void>(std::function<void(const std::string&)> say)> linkWhatsApp;
    // What the menu would show, as lines of text.
    std::function<std::string()> status;
  };

  static std::filesystem::path socketPath(const std::filesystem::path& configDirectory);
  static std::string switchedSentence(bool on);
  static constexpr std::string_view signedOutSentence =
      "Signed out: this computer's credentials are forgotten and it has stopped relaying.";

  HostControl(boost::asio::any_io_executor executor, std::filesystem::path socket, Commands commands);
  ~HostControl();

  // Starts answering; the sentence of why it cannot, or none.
  std::optional<std::string> listen();

  // The command's side: sends `command` ("stop", "on", "off", "sign-out" or "status") to the
  // running host. Its answer, or none when no host answers.
  static std::optional<std::string> ask(const std::filesystem::path& socket, const std::string& command);
  // Sends `command` and hands each line of the answer to `line` as it arrives, until the host
  // closes the connection; the last line, or none when no host answers.
  static std::optional<std::string> askLineByLine(const std::filesystem::path& socket, const std::string& command,
                                                  const std::function<void(const std::string&)>& line);

  struct Listener;  // the listening socket, shared with the loop that answers on it

 private:
  boost::asio::any_io_executor executor_;
  std::filesystem::path socket_;
  Commands commands_;
  std::shared_ptr<Listener> listener_;
};

}  // namespace quarl

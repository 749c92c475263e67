#include "HostControl_linux.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/streambuf.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <istream>

namespace quarl {
namespace asio = boost::asio;
using local = asio::local::stream_protocol;

namespace {

constexpr auto tuple = asio::as_tuple(asio::use_awaitable);
constexpr std::size_t longestCommand = 64;

// A Unix socket's path must fit its address; a longer one cannot be used at all.
bool fitsSocketAddress(const std::filesystem::path& socket) {
  return socket.string().size() < sizeof(sockaddr_un{}.sun_path);
}

std::string stoppedSentence(const std::optional<std::string>& stopped) {
  if (!stopped) return "Quarl was not operating this computer, so there was nothing to stop.";
  return "Quarl stopped operating this computer (run " + *stopped + "); the service will be told.";
}

std::string answerTo(const std::string& command, const HostControl::Commands& commands) {
  if (command == "stop") return stoppedSentence(commands.stop());
  if (command == "on" || command == "off") {
    if (!commands.allow(command == "on")) return "The setting could not be saved, so operator mode is unchanged.";
    return HostControl::switchedSentence(command == "on");
  }
  if (command == "sign-out") {
    commands.signOut();
    return std::string(HostControl::signedOutSentence);
  }
  if (command == "status" && commands.status) {
    auto text = commands.status();
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
  }
  return "That is not something Quarl can be asked here.";
}

}  // namespace

struct HostControl::Listener {
  explicit Listener(asio::any_io_executor executor) : acceptor(std::move(executor)) {}
  local::acceptor acceptor;
};

namespace {

// What a long command says, written to the terminal that asked in the order it was said, while
// the command goes on: a terminal that reads slowly or has gone away never holds the command up.
struct SpokenLines {
  explicit SpokenLines(local::socket connection) : socket(std::move(connection)), wake(socket.get_executor()) {
    wake.expires_at(asio::steady_timer::time_point::max());
  }
  local::socket socket;
  asio::steady_timer wake;
  std::string unwritten;
  bool finished = false;
  bool gone = false;
};

asio::awaitable<void> writeAsSpoken(std::shared_ptr<SpokenLines> lines) {
  while (!lines->finished || !lines->unwritten.empty()) {
    if (lines->unwritten.empty()) {
      co_await lines->wake.async_wait(tuple);
      continue;
    }
    std::string writing;
    writing.swap(lines->unwritten);
    auto [error, written] = co_await asio::async_write(lines->socket, asio::buffer(writing), tuple);
    if (error) {
      lines->gone = true;
      co_return;
    }
  }
}

asio::awaitable<void> answerLineByLine(local::socket socket, HostControl::Commands commands) {
  auto lines = std::make_shared<SpokenLines>(std::move(socket));
  asio::co_spawn(lines->socket.get_executor(), writeAsSpoken(lines), asio::detached);
  std::function<void(const std::string&)> say = [lines](const std::string& text) {
    if (lines->gone) return;
    lines->unwritten += text;
    if (text.empty() || text.back() != '\n') lines->unwritten += '\n';
    lines->wake.cancel();
  };
  co_await commands.linkWhatsApp(std::move(say));
  lines->finished = true;
  lines->wake.cancel();
}

asio::awaitable<void> answerOne(local::socket socket, HostControl::Commands commands) {
  asio::streambuf request(longestCommand);
  auto [readError, read] = co_await asio::async_read_until(socket, request, '\n', tuple);
  if (readError) co_return;
  std::istream stream(&request);
  std::string command;
  std::getline(stream, command);
  if (command == "whatsapp-link" && commands.linkWhatsApp) {
    co_await answerLineByLine(std::move(socket), std::move(commands));
    co_return;
  }
  const auto answer = answerTo(command, commands) + "\n";
  co_await asio::async_write(socket, asio::buffer(answer), tuple);
}

asio::awaitable<void> acceptAll(std::shared_ptr<HostControl::Listener> listener,
                                HostControl::Commands commands) {
  for (;;) {
    auto [error, socket] = co_await listener->acceptor.async_accept(tuple);
    if (error) co_return;
    // A child started while a command streams its answer must not hold the connection open.
    ::fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
    asio::co_spawn(listener->acceptor.get_executor(), answerOne(std::move(socket), commands), asio::detached);
  }
}

}  // namespace

std::filesystem::path HostControl::socketPath(const std::filesystem::path& configDirectory) {
  return configDirectory / "control.sock";
}

std::string HostControl::switchedSentence(bool on) {
  return on ? "Operator mode is on: the service may operate this computer while it is signed in."
            : "Operator mode is off: the service cannot operate this computer until it is switched on again.";
}

HostControl::HostControl(asio::any_io_executor executor, std::filesystem::path socket, Commands commands)
    : executor_(std::move(executor)), socket_(std::move(socket)), commands_(std::move(commands)) {}

HostControl::~HostControl() {
  if (!listener_) return;
  boost::system::error_code ignored;
  listener_->acceptor.close(ignored);
  std::filesystem::remove(socket_, ignored);
}

std::optional<std::string> HostControl::listen() {
  // A socket another host still answers on is left to it; one left behind by a host that
  // ended without cleaning up is replaced.
  if (!fitsSocketAddress(socket_)) return "the config folder's path is too long for the socket " + socket_.string();
  if (ask(socket_, "ping")) return "another Quarl already answers operator commands for this account";
  std::error_code removeError;
  std::filesystem::remove(socket_, removeError);
  auto listener = std::make_shared<Listener>(executor_);
  boost::system::error_code error;
  listener->acceptor.open(local(), error);
  if (!error) listener->acceptor.bind(local::endpoint(socket_.string()), error);
  if (!error) listener->acceptor.listen(asio::socket_base::max_listen_connections, error);
  if (error) return "the socket " + socket_.string() + " could not be made: " + error.message();
  ::chmod(socket_.c_str(), S_IRUSR | S_IWUSR);
  listener_ = listener;
  asio::co_spawn(executor_, acceptAll(listener, commands_), asio::detached);
  return std::nullopt;
}

std::optional<std::string> HostControl::ask(const std::filesystem::path& socket, const std::string& command) {
  std::string reply;
  askLineByLine(socket, command, [&reply](const std::string& line) { reply += (reply.empty() ? "" : "\n") + line; });
  if (reply.empty()) return std::nullopt;
  return reply;
}

std::optional<std::string> HostControl::askLineByLine(const std::filesystem::path& socket, const std::string& command,
                                                      const std::function<void(const std::string&)>& line) {
  if (!fitsSocketAddress(socket)) return std::nullopt;
  asio::io_context io;
  local::socket connection(io);
  boost::system::error_code error;
  connection.connect(local::endpoint(socket.string()), error);
  if (error) return std::nullopt;
  asio::write(connection, asio::buffer(command + "\n"), error);
  std::optional<std::string> last;
  std::string received;
  while (!error) {
    const auto length = asio::read_until(connection, asio::dynamic_buffer(received), '\n', error);
    // The host closing the connection ends the answer; a last line without its newline still counts.
    const auto end = error ? received.size() : length - 1;
    if (end == 0 && error) break;
    last = received.substr(0, end);
    line(*last);
    received.erase(0, error ? received.size() : length);
  }
  return last;
}

}  // namespace quarl

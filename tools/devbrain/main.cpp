// devbrain [--port N]: serves the stand-in service on 127.0.0.1, and the WhatsApp Web stand-in
// under /whatsapp/, and prints its base URL as the first line of standard output. Stops on
// SIGINT or SIGTERM.
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <set>
#include <string_view>

#include "DevBrain.h"

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;

namespace {

constexpr auto tuple = asio::as_tuple(asio::use_awaitable);

devbrain::Request toRequest(const http::request<http::string_body>& message) {
  devbrain::Request request{std::string(message.method_string()), std::string(message.target()), {}, message.body()};
  for (const auto& field : message) {
    std::string name(field.name_string());
    for (auto& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    request.headers[name] = std::string(field.value());
  }
  return request;
}

// The polls being held, woken when devbrain says something changed.
using HeldPolls = std::set<asio::steady_timer*>;

// A held poll's answer: asked again on every change until it has one or its time is up.
asio::awaitable<devbrain::Answer> heldAnswer(devbrain::Answer held, std::shared_ptr<HeldPolls> polls) {
  const auto deadline = std::chrono::steady_clock::now() + held.holdFor;
  asio::steady_timer timer(co_await asio::this_coro::executor, deadline);
  polls->insert(&timer);
  std::optional<devbrain::Answer> answer;
  while (!(answer = held.held(false)) && std::chrono::steady_clock::now() < deadline) {
    co_await timer.async_wait(tuple);
    timer.expires_at(deadline);
  }
  polls->erase(&timer);
  co_return answer ? std::move(*answer) : *held.held(true);
}

asio::awaitable<void> serveConnection(tcp::socket socket, std::shared_ptr<devbrain::DevBrain> brain,
                                      std::shared_ptr<HeldPolls> polls) {
  beast::tcp_stream stream(std::move(socket));
  beast::flat_buffer buffer;
  for (;;) {
    http::request_parser<http::string_body> parser;
    parser.body_limit(std::uint64_t(1) << 31);
    auto [readError, read] = co_await http::async_read(stream, buffer, parser, tuple);
    if (readError) co_return;
    auto message = parser.release();
    auto answer = brain->handle(toRequest(message));
    if (answer.held) answer = co_await heldAnswer(std::move(answer), polls);
    if (answer.delay.count() > 0) {
      asio::steady_timer timer(stream.get_executor(), answer.delay);
      co_await timer.async_wait(tuple);
    }
    if (answer.drop) co_return;

    http::response<http::string_body> response{static_cast<http::status>(answer.status), message.version()};
    response.set(http::field::content_type, answer.contentType);
    // Inserted, not set: an answer may carry a header more than once, as Set-Cookie does.
    for (const auto& [name, value] : answer.headers) response.insert(name, value);
    response.keep_alive(message.keep_alive());
    response.body() = answer.body;
    response.prepare_payload();
    auto [writeError, written] = co_await http::async_write(stream, response, tuple);
    if (writeError || !response.keep_alive()) co_return;
  }
}

asio::awaitable<void> acceptConnections(tcp::acceptor acceptor, std::shared_ptr<devbrain::DevBrain> brain,
                                        std::shared_ptr<HeldPolls> polls) {
  for (;;) {
    auto [error, socket] = co_await acceptor.async_accept(tuple);
    if (error) co_return;
    asio::co_spawn(acceptor.get_executor(), serveConnection(std::move(socket), brain, polls), asio::detached);
  }
}

}  // namespace

int main(int argc, char** argv) {
  unsigned short port = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--port" && i + 1 < argc) {
      port = static_cast<unsigned short>(std::strtoul(argv[++i], nullptr, 10));
    } else {
      std::cerr << "usage: devbrain [--port N]\n";
      return 2;
    }
  }

  asio::io_context io;
  tcp::acceptor acceptor(io, tcp::endpoint(asio::ip::make_address("127.0.0.1"), port));
  const auto baseURL = "http://127.0.0.1:" + std::to_string(acceptor.local_endpoint().port());
  auto brain = std::make_shared<devbrain::DevBrain>(baseURL);
  auto polls = std::make_shared<HeldPolls>();
  // Called from inside a request's handling: the woken polls ask again once it is done.
  brain->onChange([polls] {
    for (auto* timer : *polls) timer->cancel();
  });
  std::cout << baseURL << std::endl;

  asio::signal_set signals(io, SIGINT, SIGTERM);
  signals.async_wait([&](const boost::system::error_code&, int) { io.stop(); });
  asio::co_spawn(io, acceptConnections(std::move(acceptor), brain, polls), asio::detached);
  io.run();
  return 0;
}

#include "BeastHttpTransport.h"

#include <sys/socket.h>

#include <cerrno>
#include <optional>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/host_name_verification.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <boost/url/parse.hpp>

namespace quarl {
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;

namespace {

constexpr auto tokenAsTuple = asio::as_tuple(asio::use_awaitable);
constexpr std::uint64_t largestBody = std::uint64_t(2) << 30;

struct Target {
  bool secure;
  std::string host;
  std::string port;
  std::string pathAndQuery;
  std::string origin;
};

bool isLoopback(std::string_view host) {
  if (host == "localhost") return true;
  std::string bare(host);
  if (bare.size() > 2 && bare.front() == '[' && bare.back() == ']') bare = bare.substr(1, bare.size() - 2);
  boost::system::error_code error;
  const auto address = asio::ip::make_address(bare, error);
  return !error && address.is_loopback();
}

boost::system::result<Target, std::string> parseTarget(std::string_view url) {
  auto parsed = boost::urls::parse_absolute_uri(url);
  if (!parsed) return std::string("the address is not a URL");
  const auto scheme = parsed->scheme();
  if (scheme != "http" && scheme != "https") return std::string("the address's scheme is not http or https");
  Target target;
  target.secure = scheme == "https";
  target.host = parsed->host_address();
  if (target.host.empty()) return std::string("the address names no host");
  if (!target.secure && !isLoopback(target.host)) {
    return std::string("plain http is used only for this machine; the address must be https");
  }
  target.port = parsed->has_port() ? std::string(parsed->port()) : target.secure ? "443" : "80";
  target.pathAndQuery = parsed->encoded_path().empty() ? "/" : std::string(parsed->encoded_path());
  if (parsed->has_query()) target.pathAndQuery += "?" + std::string(parsed->encoded_query());
  target.origin = std::string(scheme) + "://" + target.host + ":" + target.port;
  return target;
}

std::string describe(const boost::system::error_code& error) {
  if (error == beast::error::timeout) return "the request timed out";
  return error.message();
}

}  // namespace

// One open connection, plain or TLS, with the read buffer that belongs to it.
struct BeastHttpTransport::Connection {
  std::unique_ptr<beast::tcp_stream> plain;
  std::unique_ptr<beast::ssl_stream<beast::tcp_stream>> secure;
  beast::flat_buffer buffer;

  beast::tcp_stream& lowest() { return secure ? secure->next_layer() : *plain; }

  // Whether the server has left this idle connection alone: nothing to read, not closed. A
  // request is never sent twice, so a connection the server closed while it sat idle must be
  // found out before it is used, not by a failed request.
  bool isStillOpen() {
    char byte;
    const auto n = ::recv(lowest().socket().native_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
  }
};

namespace {

using Connection = BeastHttpTransport::Connection;
using Exchanged = boost::system::result<http::response<http::string_body>, boost::system::error_code>;
using Deadline = std::chrono::steady_clock::time_point;

// The name lookup runs getaddrinfo on a thread of its own, which no cancel can interrupt, so the
// call waits for it only until its deadline and leaves a lookup that is still going to finish
// by itself: the state lives on in the lookup's handler.
asio::awaitable<boost::system::result<tcp::resolver::results_type, std::string>> resolve(asio::any_io_executor executor,
                                                                                         const Target& target,
                                                                                         Deadline deadline) {
  struct Lookup {
    explicit Lookup(const asio::any_io_executor& executor) : resolver(executor), finished(executor) {}
    tcp::resolver resolver;
    asio::steady_timer finished;
    std::optional<boost::system::error_code> error;
    tcp::resolver::results_type endpoints;
  };
  auto lookup = std::make_shared<Lookup>(executor);
  lookup->finished.expires_at(deadline);
  lookup->resolver.async_resolve(target.host, target.port,
                                 [lookup](boost::system::error_code error, tcp::resolver::results_type endpoints) {
                                   lookup->error = error;
                                   lookup->endpoints = std::move(endpoints);
                                   lookup->finished.cancel();
                                 });
  if (!lookup->error) co_await lookup->finished.async_wait(tokenAsTuple);
  if (!lookup->error) {
    lookup->resolver.cancel();
    co_return describe(beast::error::timeout);
  }
  if (*lookup->error) co_return describe(*lookup->error);
  co_return lookup->endpoints;
}

asio::awaitable<boost::system::result<std::unique_ptr<Connection>, std::string>> connect(
    asio::any_io_executor executor, asio::ssl::context& tls, Target target, Deadline deadline) {
  auto endpoints = co_await resolve(executor, target, deadline);
  if (!endpoints) co_return endpoints.error();

  auto connection = std::make_unique<Connection>();
  if (target.secure) {
    connection->secure = std::make_unique<beast::ssl_stream<beast::tcp_stream>>(executor, tls);
    if (!SSL_set_tlsext_host_name(connection->secure->native_handle(), target.host.c_str())) {
      co_return std::string("could not name the host for TLS");
    }
    connection->secure->set_verify_callback(asio::ssl::host_name_verification(target.host));
  } else {
    connection->plain = std::make_unique<beast::tcp_stream>(executor);
  }
  connection->lowest().expires_at(deadline);
  auto [connectError, endpoint] = co_await connection->lowest().async_connect(*endpoints, tokenAsTuple);
  if (connectError) co_return describe(connectError);
  if (connection->secure) {
    auto [handshakeError] =
        co_await connection->secure->async_handshake(asio::ssl::stream_base::client, tokenAsTuple);
    if (handshakeError) co_return describe(handshakeError);
  }
  co_return connection;
}

template <class Stream>
asio::awaitable<Exchanged> exchangeOn(Stream& stream, beast::flat_buffer& buffer,
                                      http::request<http::string_body>& request) {
  auto [writeError, written] = co_await http::async_write(stream, request, tokenAsTuple);
  if (writeError) co_return writeError;
  http::response_parser<http::string_body> parser;
  parser.body_limit(largestBody);
  auto [readError, read] = co_await http::async_read(stream, buffer, parser, tokenAsTuple);
  if (readError) co_return readError;
  co_return parser.release();
}

asio::awaitable<Exchanged> exchange(Connection& connection, http::request<http::string_body>& request,
                                    Deadline deadline) {
  connection.lowest().expires_at(deadline);
  if (connection.secure) co_return co_await exchangeOn(*connection.secure, connection.buffer, request);
  co_return co_await exchangeOn(*connection.plain, connection.buffer, request);
}

http::request<http::string_body> buildRequest(const HttpRequest& request, const Target& target) {
  http::request<http::string_body> message;
  message.method_string(request.method);
  message.target(target.pathAndQuery);
  message.version(11);
  const bool defaultPort = target.port == (target.secure ? "443" : "80");
  message.set(http::field::host, defaultPort ? target.host : target.host + ":" + target.port);
  for (const auto& [name, value] : request.headers) message.insert(name, value);
  if (request.body) message.body() = *request.body;
  message.keep_alive(true);
  message.prepare_payload();
  return message;
}

HttpResponse toResponse(http::response<http::string_body>&& message) {
  HttpResponse response;
  response.status = static_cast<int>(message.result_int());
  for (const auto& field : message) {
    response.headers.emplace_back(std::string(field.name_string()), std::string(field.value()));
  }
  response.body = std::move(message.body());
  return response;
}

}  // namespace

BeastHttpTransport::BeastHttpTransport(asio::any_io_executor executor)
    : executor_(std::move(executor)), tls_(asio::ssl::context::tls_client) {
  tls_.set_default_verify_paths();
  tls_.set_verify_mode(asio::ssl::verify_peer);
}

BeastHttpTransport::~BeastHttpTransport() = default;

std::unique_ptr<Connection> BeastHttpTransport::takeIdle(const std::string& origin) {
  std::lock_guard lock(mutex_);
  auto found = idle_.find(origin);
  if (found == idle_.end()) return nullptr;
  auto connection = std::move(found->second);
  idle_.erase(found);
  return connection->isStillOpen() ? std::move(connection) : nullptr;
}

void BeastHttpTransport::keepIdle(const std::string& origin, std::unique_ptr<Connection> connection) {
  std::lock_guard lock(mutex_);
  idle_.try_emplace(origin, std::move(connection));
}

asio::awaitable<boost::system::result<HttpResponse, std::string>> BeastHttpTransport::perform(HttpRequest request) {
  // One bound for the whole call: the lookup, the connection and the exchange share it.
  const auto deadline = std::chrono::steady_clock::now() + request.timeout;
  auto target = parseTarget(request.url);
  if (!target) co_return target.error();
  auto message = buildRequest(request, *target);

  auto connection = takeIdle(target->origin);
  if (!connection) {
    auto fresh = co_await connect(executor_, tls_, *target, deadline);
    if (!fresh) co_return fresh.error();
    connection = std::move(*fresh);
  }
  auto answer = co_await exchange(*connection, message, deadline);
  if (!answer) co_return describe(answer.error());

  if (answer->keep_alive()) {
    connection->lowest().expires_never();
    keepIdle(target->origin, std::move(connection));
  }
  co_return toResponse(std::move(*answer));
}

}  // namespace quarl

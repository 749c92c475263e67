// Requests per second of BrainClient::call over a kept-alive loopback connection to devbrain,
// beside a bare Beast loop sending the same request on one connection: the difference is what
// the client's signing, strand hops, single-flight bookkeeping and JSON handling cost.
#include <benchmark/benchmark.h>

#include <boost/asio/connect.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/json/serialize.hpp>
#include <boost/url/parse.hpp>

#include "../apps/mac/tests/support/DevBrainAdmin.h"
#include "BrainClient.h"

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace json = boost::json;

const quarl::ClientIdentity identity{"linux", 1, "0.1.0", "bench host", "Linux"};
const json::object heartbeatBody{{"channels", json::array{}}, {"blockedReason", nullptr}};

struct Fixture {
  quarl::testing::DevBrainProcess brain;
  quarl::testing::DevBrainAdmin admin{brain};
  quarl::Credentials credentials = issue();

  quarl::Credentials issue() {
    const auto issued = admin.post("/admin/devices");
    return {std::string(issued.at("accessToken").as_string()), std::string(issued.at("refreshToken").as_string()),
            std::string(issued.at("deviceId").as_string())};
  }
};

Fixture& fixture() {
  static Fixture shared;
  return shared;
}

void BM_BrainClientCall(benchmark::State& state) {
  auto& f = fixture();
  asio::io_context io;
  quarl::BrainClient client(io.get_executor(), f.brain.baseURL(), identity, f.credentials,
                            std::make_shared<quarl::BeastHttpTransport>(io.get_executor()),
                            std::make_shared<quarl::SystemClock>(), nullptr);
  for (auto _ : state) {
    auto answer = quarl::testing::runAwaitable(io, client.call(quarl::QuarlEndpoint::heartbeat(), heartbeatBody));
    if (!answer) state.SkipWithError(answer.error().description().c_str());
  }
  state.SetItemsProcessed(state.iterations());
}

asio::awaitable<int> bareExchange(beast::tcp_stream& stream, beast::flat_buffer& buffer,
                                  http::request<http::string_body>& request) {
  co_await http::async_write(stream, request, asio::use_awaitable);
  http::response<http::string_body> response;
  co_await http::async_read(stream, buffer, response, asio::use_awaitable);
  // Parse the answer as the client does, so that both sides do the same essential work.
  co_return json::parse(response.body()).is_object() ? response.result_int() : 0;
}

void BM_BareBeastLoop(benchmark::State& state) {
  auto& f = fixture();
  asio::io_context io;
  const auto url = boost::urls::parse_uri(f.brain.baseURL()).value();
  asio::ip::tcp::resolver resolver(io);
  beast::tcp_stream stream(io);
  stream.connect(resolver.resolve(url.host(), url.port()));
  beast::flat_buffer buffer;

  http::request<http::string_body> request{http::verb::post, "/v1/relay/heartbeat", 11};
  request.set(http::field::host, url.host());
  request.set(http::field::content_type, "application/json");
  request.set(http::field::authorization, "Bearer " + f.credentials.accessToken);
  request.set("x-quarl-device", f.credentials.deviceId);
  request.set("x-quarl-platform", identity.platform);
  request.set("x-quarl-build", std::to_string(identity.build));
  request.set("x-quarl-version", identity.version);
  request.body() = json::serialize(heartbeatBody);
  request.prepare_payload();

  for (auto _ : state) {
    if (quarl::testing::runAwaitable(io, bareExchange(stream, buffer, request)) != 200) {
      state.SkipWithError("devbrain refused the bare request");
    }
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_BareBeastLoop)->MinTime(3.0)->UseRealTime();
BENCHMARK(BM_BrainClientCall)->MinTime(3.0)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

// WhatsApp capture passes in a real WebKitGTK against devbrain's stand-in, 15 chats of 40 messages:
//   1. the first look (the newest 3 chats opened, the rest baselined);
//   2. a quiet pass: nothing changed, so nothing is pressed;
//   3. a busy pass: 6 changed chats opened with 40 rows each, and 6 unchanged chats read without
//      opening from the page's memory.
// For the quiet and busy passes, the capture script alone and the whole tick stage (script, rules,
// settings and every message handed to devbrain over HTTP) are timed.
#include <boost/json/parse.hpp>
#include <chrono>
#include <cstdio>

#include "StandInBench.h"
#include "WhatsAppCapture.h"

namespace {

namespace asio = boost::asio;
namespace json = boost::json;
using namespace std::chrono;
using quarl::testing::runAwaitable;

constexpr int chats = 15;
constexpr int rowsEach = 40;
constexpr std::int64_t baseTime = 1795000000;

std::string ref(int n) {
  char id[32];
  std::snprintf(id, sizeof id, "4477009002%02d@c.us", n);
  return id;
}

json::object said(const std::string& id, std::int64_t t) {
  return json::object{{"id", id}, {"t", t}, {"body", "message " + id + " with a few words in it"}};
}

// When `work` itself ended: the script's time limit is watched in slices of a second, and the
// loop runs on until the last slice is over.
template <class T>
asio::awaitable<double> millisecondsOf(asio::awaitable<T> work) {
  const auto started = steady_clock::now();
  co_await std::move(work);
  co_return duration<double, std::milli>(steady_clock::now() - started).count();
}

asio::awaitable<void> readInto(quarl::WhatsAppWeb::ReadResult& result, quarl::WhatsAppSession& session,
                               quarl::WhatsAppWeb::CaptureInputs inputs) {
  result = co_await session.readNew(std::move(inputs));
}

}  // namespace

int main() {
  quarl::bench::StandInBench bench;
  auto& admin = bench.admin;
  auto& io = bench.io;
  auto& defaults = bench.defaults;
  auto& session = bench.session;
  json::array all;
  for (int n = 0; n < chats; ++n) {
    json::array messages;
    for (int i = 0; i < rowsEach; ++i) messages.push_back(said("3EB0" + std::to_string(n * 100 + i), baseTime + n * 1000 + i));
    all.push_back(json::object{{"id", ref(n)}, {"title", "Chat " + std::to_string(n)}, {"messages", messages}});
  }
  admin.post("/admin/whatsapp/chats", json::object{{"replace", true}, {"chats", all}});
  // A window tall enough to draw every chat, so that the six unchanged ones can be read.
  admin.post("/admin/whatsapp/screen", json::object{{"screen", "linked"}, {"visibleRows", chats}});

  defaults->write(quarl::keys::whatsappSweepVersion, 1);
  if (!bench.linked()) return 1;
  const auto client = bench.signedInClient();
  quarl::WhatsAppCapture capture(bench.clock, defaults);

  const auto stage = [&](const char* what) {
    const auto took = runAwaitable(io, millisecondsOf(capture.capture(*session, *client, "ch-whatsapp")));
    std::printf("%-48s %7.0f ms\n", what, took);
  };
  const auto script = [&](const char* what, std::vector<std::string> peek) {
    quarl::WhatsAppWeb::CaptureInputs inputs;
    inputs.known = defaults->strings(quarl::keys::whatsappRowPrints).value_or(std::vector<std::string>{});
    inputs.peek = std::move(peek);
    quarl::WhatsAppWeb::ReadResult result;
    const auto took = runAwaitable(io, millisecondsOf(readInto(result, *session, std::move(inputs))));
    std::printf("%-48s %7.0f ms  (%s: %lld opened, %zu read without opening, %zu messages)\n", what, took,
                result.stage.c_str(), static_cast<long long>(result.counts.opened), result.peeked.size(),
                result.messages.size());
  };

  stage("first look, whole stage");
  script("quiet pass, capture script", {});
  stage("quiet pass, whole stage");

  std::vector<std::string> unchanged;
  for (int n = 0; n < 6; ++n) {
    admin.post("/admin/whatsapp/messages",
               json::object{{"chat", ref(n)}, {"messages", json::array{said("3EB1" + std::to_string(n), baseTime + 90000 + n)}}});
    admin.post("/admin/whatsapp/messages", json::object{{"chat", ref(6 + n)}, {"modelOnly", true},
                                                        {"messages", json::array{said("3EB2" + std::to_string(n), baseTime + 80000 + n)}}});
    unchanged.push_back(quarl::WhatsAppWeb::messageTag(ref(6 + n)).substr(1));
  }
  const auto settle = steady_clock::now() + milliseconds(800);  // the page polls its state every 250 ms
  while (steady_clock::now() < settle) io.run_for(milliseconds(50));
  script("busy pass, capture script", unchanged);
  stage("busy pass, whole stage");
  std::printf("messages handed to devbrain: %zu\n", admin.get("/admin/ingested").as_array().size());
  return 0;
}

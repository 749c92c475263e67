// WhatsApp relay jobs in a real WebKitGTK against devbrain's stand-in, 40 chats of which the list
// draws 11: the time from a job's claim to its report, through the relay pass as the host runs it,
// for a text reply into a chat in sight, a text reply into a chat the walk has to scroll to, and
// a picture (64 KiB) with a line of text. Each is run three times; the median is shown.
#include <algorithm>
#include <chrono>
#include <cstdio>

#include "Base64.h"
#include "MessagesRelay.h"
#include "StandInBench.h"

namespace {

namespace asio = boost::asio;
namespace json = boost::json;
using namespace std::chrono;
using quarl::testing::runAwaitable;

constexpr int chats = 40;
constexpr std::int64_t baseTime = 1795000000;

std::string ref(int n) {
  char id[32];
  std::snprintf(id, sizeof id, "4477009003%02d@c.us", n);
  return id;
}

asio::awaitable<double> millisecondsOf(asio::awaitable<void> work) {
  const auto started = steady_clock::now();
  co_await std::move(work);
  co_return duration<double, std::milli>(steady_clock::now() - started).count();
}

}  // namespace

int main() {
  quarl::bench::StandInBench bench;
  auto& admin = bench.admin;
  auto& io = bench.io;
  auto& session = bench.session;
  json::array all;
  for (int n = 0; n < chats; ++n) {
    json::array messages{json::object{{"id", "3EB0" + std::to_string(n)}, {"t", baseTime + n * 60}, {"body", "hello"}}};
    all.push_back(json::object{{"id", ref(n)}, {"title", "Chat " + std::to_string(n)}, {"messages", messages}});
  }
  admin.post("/admin/whatsapp/chats", json::object{{"replace", true}, {"chats", all}});
  admin.post("/admin/whatsapp/screen", json::object{{"screen", "linked"}, {"visibleRows", 11}});

  if (!bench.linked()) return 1;
  const auto client = bench.signedInClient();
  quarl::MessagesRelay relay(bench.clock, (bench.folder.path() / "chat.db").string(),
                             std::make_shared<quarl::RelaySendLedger>(bench.defaults), bench.defaults);
  relay.sendWhatsAppThrough(session);

  std::string picture;
  for (int i = 0; i < 65536; ++i) picture.push_back(static_cast<char>(i % 251));
  // Every round starts from the same list, seen from its top: the chat a send went to has moved
  // to the top, and a walk may have left the list scrolled.
  const auto freshList = [&] {
    admin.post("/admin/whatsapp/chats", json::object{{"replace", true}, {"chats", all}});
    runAwaitable(io, session->evaluate("document.querySelector('#pane-side').scrollTop = 0; 1"));
    const auto drawn = steady_clock::now() + milliseconds(800);  // the page polls its state every 250 ms
    while (steady_clock::now() < drawn) io.run_for(milliseconds(50));
  };
  const auto measure = [&](const char* what, const std::function<json::object(int)>& job) {
    std::vector<double> times;
    for (int round = 0; round < 3; ++round) {
      freshList();
      admin.post("/admin/jobs", job(round));
      times.push_back(runAwaitable(io, millisecondsOf(relay.runRelayJobs(*client))));
    }
    std::sort(times.begin(), times.end());
    std::printf("%-52s %7.0f ms  (%.0f to %.0f)\n", what, times[1], times.front(), times.back());
  };
  // The newest chats head the list; chat 0 is the oldest, drawn only once the list is walked.
  measure("text into a chat in sight, claim to report", [&](int round) {
    return json::object{{"channelKind", "whatsapp"}, {"conversationRef", ref(chats - 1 - round)}, {"body", "on my way"}};
  });
  measure("text into a chat found by the walk, claim to report", [&](int round) {
    return json::object{{"channelKind", "whatsapp"}, {"conversationRef", ref(round)}, {"body", "found you"}};
  });
  measure("picture and text, claim to report", [&](int round) {
    return json::object{{"channelKind", "whatsapp"}, {"conversationRef", ref(chats - 1 - round)}, {"body", "the map"},
                        {"attachments", json::array{json::object{{"filename", "map.png"}, {"mimeType", "image/png"},
                                                                 {"dataBase64", quarl::base64Encode(picture)}}}}};
  });
  const auto reports = admin.get("/admin/reports");
  std::size_t sent = 0;
  for (const auto& each : reports.as_array()) sent += each.at("ok") == json::value(true) ? 1 : 0;
  // `replace` empties the stand-in's log of what it was sent; the reports are devbrain's own.
  std::printf("jobs reported sent: %zu of %zu\n", sent, reports.as_array().size());
  return sent == reports.as_array().size() ? 0 : 1;
}

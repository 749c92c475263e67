// WhatsApp Web's page host in a real WebKitGTK against devbrain's stand-in, linked:
//   1. launch to linked: from nothing (no GTK, no web view, no display when $DISPLAY is unset)
//      to the session probe reading `linked`, through `load` and `settledState`;
//   2. the session probe's round trip, over 50 probes (mean, p95, max);
//   3. how late a 150 ms setTimeout fires inside the parked page, over 50 turns in a row (mean,
//      p95, max). A page whose window is off screen must not have its timers slowed down.
#include <algorithm>
#include <boost/json/parse.hpp>
#include <chrono>
#include <cstdio>
#include <numeric>
#include <vector>

#include "StandInBench.h"

namespace {

namespace asio = boost::asio;
namespace json = boost::json;
using namespace std::chrono;
using quarl::testing::runAwaitable;

constexpr int probes = 50;
constexpr int turns = 50;

void printSpread(const char* what, std::vector<double> values, const char* unit) {
  std::sort(values.begin(), values.end());
  const double mean = std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
  const double p95 = values[values.size() * 95 / 100];
  std::printf("%-42s mean %7.1f %s  p95 %7.1f %s  max %7.1f %s\n", what, mean, unit, p95, unit, values.back(), unit);
}

double millisecondsSince(steady_clock::time_point start) {
  return duration<double, std::milli>(steady_clock::now() - start).count();
}

}  // namespace

int main() {
  quarl::bench::StandInBench bench;
  bench.admin.post("/admin/whatsapp/screen", json::object{{"screen", "linked"}});
  auto& io = bench.io;
  auto& session = bench.session;

  const auto launched = steady_clock::now();
  runAwaitable(io, session->load());
  const auto state = runAwaitable(io, session->settledState());
  const double launch = millisecondsSince(launched);
  if (!quarl::WhatsAppWeb::isSettled(state)) {
    std::printf("the stand-in never read linked: %s\n", quarl::WhatsAppWeb::describe(state).c_str());
    return 1;
  }
  std::printf("%-42s %7.0f ms\n", "launch to linked", launch);

  std::vector<double> roundTrips;
  for (int i = 0; i < probes; ++i) {
    const auto asked = steady_clock::now();
    runAwaitable(io, session->refreshState());
    roundTrips.push_back(millisecondsSince(asked));
  }
  printSpread("session probe round trip", roundTrips, "ms");

  const auto timed = runAwaitable(
      io, session->evaluateReporting("const delays = [];"
                                     "for (let turn = 0; turn < turns; ++turn) {"
                                     "  const asked = performance.now();"
                                     "  await new Promise(done => setTimeout(done, 150));"
                                     "  delays.push(performance.now() - asked);"
                                     "}"
                                     "return JSON.stringify(delays);",
                                     json::object{{"turns", turns}}, seconds(60)));
  if (!timed.answer) {
    std::printf("the timer script did not answer: %s\n", timed.failure.value_or("").c_str());
    return 1;
  }
  std::vector<double> delays;
  const auto answered = json::parse(*timed.answer);
  for (const auto& delay : answered.as_array()) delays.push_back(delay.to_number<double>());
  printSpread("150 ms setTimeout in the parked page", delays, "ms");
  return 0;
}

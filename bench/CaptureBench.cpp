// The Messages capture end to end, with real processes: quarl-companion against devbrain on
// loopback, reading a store in a temporary HOME.
//   1. Backlog: 5,000 messages captured by `quarl-companion --once`; messages per second,
//      pairing and the first heartbeat included.
//   2. Inbound latency: with the host running, one row at a time is written to the store's
//      write-ahead log; the time until devbrain has its ingest, over 100 rows (p50, p95, max).
//
// capture_bench --store PATH [--in FOLDER] copies a store built before (chat_database_bench's
// million messages) into a HOME made under FOLDER, signs the host in with its cursor a minute
// back instead of the backlog, and measures the latency on it. Where FOLDER's volume clones
// files (an XFS loop file made with reflink=1), the snapshot is a clone; elsewhere it is a copy,
// whose own time is printed beside the latency.
#include <algorithm>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/process/child.hpp>
#include <boost/process/env.hpp>
#include <boost/process/io.hpp>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

#include "../apps/mac/tests/support/DevBrainAdmin.h"
#include "../apps/mac/tests/support/MessagesStore.h"
#include "../apps/mac/tests/support/TemporaryDirectory.h"
#include "ChatSnapshot.h"
#include "DateText.h"
#include "FileClone.h"

namespace {

namespace bp = boost::process;
namespace fs = std::filesystem;
namespace json = boost::json;
using namespace std::chrono;
using quarl::testing::MessagesStore;

constexpr int backlog = 5000;
constexpr int latencyRows = 100;

std::int64_t ingestedCount(quarl::testing::DevBrainAdmin& admin) {
  return admin.get("/admin/stats").at("ingested").as_int64();
}

double percentile(std::vector<double> values, double p) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(p * static_cast<double>(values.size() - 1))];
}

std::optional<std::string> argument(int argc, char** argv, std::string_view name) {
  for (int i = 1; i + 1 < argc; ++i) {
    if (argv[i] == name) return std::string(argv[i + 1]);
  }
  return std::nullopt;
}

// A store built before, copied in with its log, and the cursor a minute back.
void copyStore(const fs::path& from, const fs::path& to, const fs::path& config, quarl::SystemTime now) {
  for (const char* suffix : {"", "-wal", "-shm"}) {
    if (fs::exists(from.string() + suffix)) fs::copy_file(from.string() + suffix, to.string() + suffix);
  }
  std::ifstream stored(config / "defaults.json");
  json::object defaults = json::parse(stored).as_object();
  defaults["QuarlCaptureCursor"] = json::object{{"lastMessageDate", quarl::iso8601(now - minutes(1))}};
  std::ofstream(config / "defaults.json") << json::serialize(defaults);
}

void writeBacklog(const fs::path& store, quarl::SystemTime now) {
  MessagesStore fixture(store);
  std::vector<std::int64_t> chats;
  for (int c = 0; c < 50; ++c) {
    const auto handle = fixture.handle("+1555000" + std::to_string(1000 + c));
    chats.push_back(fixture.chat("+1555000" + std::to_string(1000 + c), "iMessage", {handle}));
  }
  fixture.exec("begin");
  for (int i = 0; i < backlog; ++i) {
    fixture.message({.guid = "backlog-" + std::to_string(i),
                     .chat = chats[static_cast<std::size_t>(i % 50)],
                     .handle = i % 50 + 1,
                     .text = "backlog message number " + std::to_string(i),
                     .date = quarl::testing::appleNanoseconds(now - hours(48) + seconds(i))});
  }
  fixture.exec("commit");
}

// What one snapshot of the store costs where it lies: clone or copy.
void describeSnapshot(const fs::path& store) {
  const auto clones = [&] {
    const auto into = store.parent_path() / "clone-probe";
    const bool cloned = quarl::cloneFile(store, into);
    fs::remove(into);
    return cloned;
  }();
  const auto started = steady_clock::now();
  auto snapshot = quarl::ChatSnapshot::take(store.string());
  const double took = duration<double, std::milli>(steady_clock::now() - started).count();
  std::printf("snapshot of the store (%s): %.0f ms\n", clones ? "clone" : "plain copy", took);
}

}  // namespace

int main(int argc, char** argv) {
  const auto givenStore = argument(argc, argv, "--store");
  const auto folder = argument(argc, argv, "--in");
  if (folder) ::setenv("TMPDIR", folder->c_str(), 1);  // the snapshots go on the same volume
  quarl::testing::DevBrainProcess brain;
  quarl::testing::DevBrainAdmin admin(brain);
  admin.post("/admin/settings", {{"autoApprove", true}, {"pairingIntervalSeconds", 0}});
  quarl::testing::TemporaryDirectory home;
  const auto config = home.path() / ".config" / "quarl";
  fs::create_directories(config);
  std::ofstream(config / "defaults.json") << json::serialize(json::object{{"QuarlApiURL", brain.baseURL()}});
  const auto messages = home.path() / "Library" / "Messages";
  fs::create_directories(messages);
  const auto store = messages / "chat.db";
  const auto now = time_point_cast<quarl::SystemTime::duration>(system_clock::now());
  if (givenStore) {
    copyStore(*givenStore, store, config, now);
    describeSnapshot(store);
  } else {
    writeBacklog(store, now);
  }
  const auto environment = [&] {
    bp::environment env = boost::this_process::environment();  // a copy, not this process's own
    env["HOME"] = home.path().string();
    env["XDG_CONFIG_HOME"] = (home.path() / ".config").string();
    env["QUARL_LOG_LEVEL"] = "error";
    return env;
  }();

  const auto started = steady_clock::now();
  bp::child once(QUARL_COMPANION_PATH, "--once", environment, bp::std_out > bp::null, bp::std_err > bp::null);
  once.wait();
  const double elapsed = duration<double>(steady_clock::now() - started).count();
  const auto captured = ingestedCount(admin);
  if (!givenStore) {
    std::printf("backlog: %lld of %d messages in %.2f s, %.0f messages/s (exit %d)\n", static_cast<long long>(captured),
                backlog, elapsed, static_cast<double>(captured) / elapsed, once.exit_code());
  } else {
    std::printf("first run (pairing, first tick over the store): %.2f s (exit %d)\n", elapsed, once.exit_code());
  }

  bp::child host(QUARL_COMPANION_PATH, environment, bp::std_out > bp::null, bp::std_err > bp::null);
  // Let its first tick run before timing anything.
  std::this_thread::sleep_for(milliseconds(givenStore ? 5000 : 1500));
  std::vector<double> latencies;
  for (int i = 0; i < latencyRows; ++i) {
    const auto before = ingestedCount(admin);
    MessagesStore fixture(store, quarl::testing::MessagesSchema::tahoe, MessagesStore::Opening::existing);
    fixture.message({.guid = "live-" + std::to_string(i), .chat = 1, .handle = 1, .text = "live " + std::to_string(i),
                     .date = quarl::testing::appleNanoseconds(
                         time_point_cast<quarl::SystemTime::duration>(system_clock::now()))});
    // Timed from the commit: opening the store to write is the writer's cost, not the companion's.
    const auto written = steady_clock::now();
    fixture.close();
    while (ingestedCount(admin) == before && steady_clock::now() - written < seconds(20)) {
      std::this_thread::sleep_for(milliseconds(1));
    }
    latencies.push_back(duration<double, std::milli>(steady_clock::now() - written).count());
    std::this_thread::sleep_for(milliseconds(100 + (i * 37) % 200));
  }
  std::error_code ignored;
  host.terminate(ignored);
  std::printf("inbound latency over %d rows: p50 %.0f ms, p95 %.0f ms, max %.0f ms\n", latencyRows,
              percentile(latencies, 0.5), percentile(latencies, 0.95), *std::max_element(latencies.begin(), latencies.end()));
  return 0;
}

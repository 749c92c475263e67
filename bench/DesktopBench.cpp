// The desktop operator's costs on a private desktop: reading the test desk's window (2,000 nodes
// and a full 6,000-unit text), the cost of each node read over AT-SPI, and taking and encoding
// pictures: the display's own (1440 × 900) and a 1920 × 1080 screen's worth of pixels.
#include <benchmark/benchmark.h>

#include <boost/asio/io_context.hpp>

#include <random>
#include <thread>

#include "AXReader.h"
#include "AXWalk.h"
#include "DesktopSession.h"
#include "OperatorLookPolicy.h"
#include "TemporaryDirectory.h"
#include "Utf16Text.h"
#include "platform/linux/desktop/LinuxDesktop_linux.h"

namespace {

using namespace quarl;

struct World {
  testing::DesktopSession session;
  testing::TemporaryDirectory folder;
  std::optional<testing::TestDesk> desk;
  std::shared_ptr<LinuxDesktop> desktop;
  RunningApp app;
  boost::asio::io_context io;

  World() {
    if (session.refusal()) throw std::runtime_error(*session.refusal());
    desk.emplace(session.startDesk(QUARL_TEST_DESK_PATH, folder.path() / "state.json"));
    std::string refusal;
    desktop = LinuxDesktop::open(io.get_executor(), refusal);
    if (!desktop) throw std::runtime_error(refusal);
    for (int i = 0; i < 100 && !app.processId; ++i) {
      for (const auto& running : desktop->source->runningApps())
        if (running.processId == desk->pid()) app = running;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    if (!app.processId) throw std::runtime_error("the test desk did not show on the accessibility bus");
  }
  static World& get() {
    static World world;
    return world;
  }
};

std::size_t nodesIn(const AXNode& node) {
  std::size_t count = 1;
  for (const auto& child : node.children) count += nodesIn(child);
  return count;
}

void snapshotOf2000Nodes(benchmark::State& state) {
  auto& world = World::get();
  ElementRegistry registry;
  AXReader reader(*world.desktop->source, registry);
  std::size_t units = 0, listed = 0;
  for (auto _ : state) {
    // In one batch on AT-SPI's thread, as the executor reads.
    world.desktop->source->runBatch([&] {
      auto read = reader.snapshot(world.app);
      const auto& snapshot = std::get<AXSnapshot>(read);
      units = utf16Length(snapshot.text);
      listed = snapshot.elements.size();
    });
  }
  state.counters["text_units"] = static_cast<double>(units);
  state.counters["elements"] = static_cast<double>(listed);
}
BENCHMARK(snapshotOf2000Nodes)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

// Argument 1: the walk in one batch on AT-SPI's thread; 0: each call handed over to it on its own.
void atspiReadPerNode(benchmark::State& state) {
  auto& world = World::get();
  auto& source = *world.desktop->source;
  const auto window = source.frontWindow(*world.app.processId);
  std::size_t nodes = 0;
  for (auto _ : state) {
    if (state.range(0) == 1) {
      source.runBatch([&] { nodes = nodesIn(AXWalk::build(source, *window)); });
    } else {
      nodes = nodesIn(AXWalk::build(source, *window));
    }
  }
  state.counters["nodes"] = static_cast<double>(nodes);
  state.counters["per_node"] = benchmark::Counter(static_cast<double>(nodes * state.iterations()),
                                                  benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(atspiReadPerNode)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

void captureAndEncodeTheDisplay(benchmark::State& state) {
  auto& world = World::get();
  auto& capturer = *world.desktop->capturer;
  for (auto _ : state) {
    auto picture = capturer.capture(std::nullopt, {});
    benchmark::DoNotOptimize(capturer.lookOutcome(std::get<CapturedPicture>(picture)));
  }
}
BENCHMARK(captureAndEncodeTheDisplay)->Unit(benchmark::kMillisecond)->Iterations(10);

// A 1920 × 1080 screen of text-like detail: noise is the worst a JPEG meets.
void encode1920x1080(benchmark::State& state) {
  auto& world = World::get();
  CapturedPicture picture{1920, 1080, std::string(1920 * 1080 * 3, '\0')};
  std::mt19937 noise(7);
  for (std::size_t i = 0; i < picture.rgb.size(); i += 3) {
    const auto shade = static_cast<char>((i / 3 % 1920) / 8 + (noise() % 64));
    picture.rgb[i] = picture.rgb[i + 1] = picture.rgb[i + 2] = shade;
  }
  std::size_t thumbnail = 0, screen = 0;
  for (auto _ : state) {
    const auto look = world.desktop->capturer->lookOutcome(picture).wire();
    thumbnail = look.at("result").at("thumbnailJpegBase64").as_string().size() * 3 / 4;
    screen = look.at("result").at("screenJpegBase64").as_string().size() * 3 / 4;
  }
  state.counters["thumbnail_bytes"] = static_cast<double>(thumbnail);
  state.counters["screen_bytes"] = static_cast<double>(screen);
}
BENCHMARK(encode1920x1080)->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace

BENCHMARK_MAIN();

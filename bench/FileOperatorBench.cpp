// The Linux file operator on a home folder of 100,000 files, and a 300-page PDF.
//   Search by name, and by text (every text-like file's first megabyte read and folded), as
//   "list_files" runs them; then the text of a 300-page PDF as "read_file" takes it, in this
//   process and in the child process the host uses.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "../apps/mac/tests/support/Documents.h"
#include "../apps/mac/tests/support/TemporaryDirectory.h"
#include "platform/DocumentReading.h"
#include "platform/linux/FileOperator_linux.h"

namespace {

namespace fs = std::filesystem;
using quarl::FileQuery;
using quarl::LinuxFileOperator;

constexpr int fileCount = 100'000;
constexpr int filesPerFolder = 500;

// 100,000 files in folders of 500 under Documents, Desktop and Downloads: two in three are
// notes of about 1.5 KB of words, the rest pictures by name. Ten are named "needle report",
// ten others mention "zebracorn" in their text.
struct Home {
  quarl::testing::TemporaryDirectory folder;
  Home() {
    std::mt19937 random(7);
    const char* words[] = {"budget", "meeting", "garden", "invoice", "letter", "travel", "recipe", "school"};
    const char* roots[] = {"Documents", "Desktop", "Downloads"};
    for (int i = 0; i < fileCount; ++i) {
      const auto dir = folder.path() / roots[i % 3] / ("folder " + std::to_string(i / filesPerFolder));
      if (i % filesPerFolder < 3) fs::create_directories(dir);
      const bool note = i % 3 != 2;
      std::string name = (i % 10'000 == 17) ? "needle report " + std::to_string(i) : "file " + std::to_string(i);
      std::ofstream out(dir / (name + (note ? ".txt" : ".jpg")), std::ios::binary);
      if (!note) {
        out << std::string(512, 'x');
        continue;
      }
      for (int w = 0; w < 220; ++w) out << words[random() % 8] << ' ';
      if (i % 10'000 == 4242) out << "zebracorn";
    }
  }
};

Home& home() {
  static Home shared;
  return shared;
}

void search(benchmark::State& state, const char* query) {
  LinuxFileOperator files(home().folder.path().string(), quarl::documentReaderInProcess(),
                          LinuxFileOperator::Limits{std::chrono::minutes(5)});
  const auto words = FileQuery::from(query);
  std::size_t found = 0;
  for (auto _ : state) {
    const auto result = files.search(*words, 20);
    if (!result.finished) state.SkipWithError("the search did not finish");
    found = result.files.size();
  }
  state.counters["found"] = static_cast<double>(found);
  state.counters["files/s"] = benchmark::Counter(fileCount, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_SearchByName(benchmark::State& state) { search(state, "Needle Report"); }
void BM_SearchByText(benchmark::State& state) { search(state, "ZEBRACORN"); }

struct Pdf {
  quarl::testing::TemporaryDirectory folder;
  quarl::FoundFile file;
  Pdf() {
    std::vector<std::vector<std::string>> pages(300);
    for (std::size_t p = 0; p < pages.size(); ++p) {
      for (int line = 0; line < 45; ++line) {
        pages[p].push_back("Page " + std::to_string(p + 1) + ", line " + std::to_string(line + 1) +
                           ": the quarterly figures were read and checked twice.");
      }
    }
    file.path = (folder.path() / "Annual report.pdf").string();
    std::ofstream(file.path, std::ios::binary) << quarl::testing::pdfWithPages(pages);
    LinuxFileOperator files(folder.path().string(), quarl::documentReaderInProcess(), {});
    file.identity = files.present(file.path)->identity;
  }
};

Pdf& pdf() {
  static Pdf shared;
  return shared;
}

void readPdf(benchmark::State& state, const quarl::DocumentReader& reader) {
  quarl::DocumentText text;
  for (auto _ : state) {
    text = reader(pdf().file);
    if (text.failure) state.SkipWithError(text.failure->c_str());
  }
  state.counters["pages"] = static_cast<double>(text.pages.value_or(0));
  state.counters["pagesRead"] = static_cast<double>(text.pagesRead.value_or(0));
  state.counters["truncated"] = text.truncated;
}

void BM_Pdf300PagesInProcess(benchmark::State& state) { readPdf(state, quarl::documentReaderInProcess()); }
void BM_Pdf300PagesInChild(benchmark::State& state) {
  readPdf(state, quarl::documentReaderInChild(QUARL_COMPANION_PATH, std::chrono::seconds(20)));
}

BENCHMARK(BM_SearchByName)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_SearchByText)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Pdf300PagesInProcess)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pdf300PagesInChild)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

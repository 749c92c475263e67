#include "TerminalQr_linux.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <vector>

#include "../tests/support/TemporaryDirectory.h"

namespace quarl {
namespace {

// The drawing read back into modules, written as a PBM picture four pixels to a module.
void writePicture(const std::string& drawn, const std::string& path) {
  std::vector<std::vector<bool>> rows;
  std::istringstream lines(drawn);
  std::string line;
  const std::array<std::string, 4> glyphs{" ", "▀", "▄", "█"};
  while (std::getline(lines, line)) {
    std::vector<bool> top, bottom;
    for (std::size_t at = 0; at < line.size();) {
      int glyph = 0;
      for (int g = 3; g > 0; --g) {
        if (line.compare(at, glyphs[g].size(), glyphs[g]) == 0) glyph = g;
      }
      top.push_back(glyph == 1 || glyph == 3);
      bottom.push_back(glyph == 2 || glyph == 3);
      at += glyphs[glyph].size();
    }
    rows.push_back(top);
    rows.push_back(bottom);
  }
  constexpr int scale = 4;
  std::ofstream out(path);
  out << "P1\n" << rows.front().size() * scale << " " << rows.size() * scale << "\n";
  for (const auto& row : rows) {
    for (int repeat = 0; repeat < scale; ++repeat) {
      for (bool module : row) {
        for (int i = 0; i < scale; ++i) out << (module ? "1 " : "0 ");
      }
      out << "\n";
    }
  }
}

std::string decoded(const std::string& path) {
  std::string text;
  if (FILE* pipe = ::popen(("zbarimg --quiet --raw '" + path + "' 2>/dev/null").c_str(), "r")) {
    std::array<char, 256> chunk;
    while (std::fgets(chunk.data(), chunk.size(), pipe)) text += chunk.data();
    ::pclose(pipe);
  }
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

TEST(TerminalQr, TheDrawingDecodesToItsPayload) {
  testing::TemporaryDirectory folder;
  for (const std::string& payload : {std::string("2@short"), "2@" + std::string(180, 'k') + ",Zm9v,YmFy==,1"}) {
    const auto drawn = terminalQr(payload);
    ASSERT_TRUE(drawn);
    const auto picture = (folder.path() / "code.pbm").string();
    writePicture(*drawn, picture);
    EXPECT_EQ(decoded(picture), payload);
  }
}

}  // namespace
}  // namespace quarl

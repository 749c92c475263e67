#pragma once

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace quarl::testing {

// A QR code drawn in Unicode half blocks, read back into modules and written as a PBM picture
// four pixels to a module.
inline void writeTerminalQrPicture(const std::string& drawn, const std::filesystem::path& path) {
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
  if (rows.empty()) return;
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

// What zbarimg reads in the picture at `path`; empty when it finds no code.
inline std::string decodedPicture(const std::filesystem::path& path) {
  std::string text;
  if (FILE* pipe = ::popen(("zbarimg --quiet --raw '" + path.string() + "' 2>/dev/null").c_str(), "r")) {
    std::array<char, 256> chunk;
    while (std::fgets(chunk.data(), chunk.size(), pipe)) text += chunk.data();
    ::pclose(pipe);
  }
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

// The payload of a QR code drawn in half blocks, decoded through a picture in `folder`.
inline std::string decodedTerminalQr(const std::string& drawn, const std::filesystem::path& folder) {
  const auto picture = folder / "terminal-code.pbm";
  writeTerminalQrPicture(drawn, picture);
  return decodedPicture(picture);
}

}  // namespace quarl::testing

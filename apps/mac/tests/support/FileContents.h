#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace quarl::testing {

// The whole text of a file, or empty when it cannot be read.
inline std::string fileContents(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace quarl::testing

#include "FileOperator_linux.h"

#include <filesystem>

#include "FileReadPolicy.h"
#include "FolderAccess.h"

namespace quarl {
namespace fs = std::filesystem;
using namespace std::chrono;

LinuxFileOperator::LinuxFileOperator(const std::string& home, DocumentReader reader, Limits limits,
                                     const std::vector<std::string>& ownFolders)
    : HomeFileOperator(home, std::move(reader), limits.contentReadMax, ownFolders), limits_(limits) {}

MacFileOperator::Found LinuxFileOperator::search(const FileQuery& query, std::size_t limit) {
  const auto deadline = steady_clock::now() + limits_.searchTime;
  Found result;
  std::vector<FoundFile> matched;
  std::size_t visited = 0;
  for (const auto& root : searchRoots()) {
    std::error_code error;
    fs::recursive_directory_iterator walk(root, fs::directory_options::skip_permission_denied, error);
    for (; !error && walk != fs::recursive_directory_iterator(); walk.increment(error)) {
      if (++visited > limits_.entriesMax || steady_clock::now() >= deadline) {
        result.finished = false;
        return result;
      }
      const auto name = walk->path().filename().string();
      std::error_code kindError;
      if (walk->is_directory(kindError) && !walk->is_symlink(kindError)) {
        if (hidden(name) || FileReadPolicy::isSecret(name)) walk.disable_recursion_pending();
        continue;
      }
      if (hidden(name) || !matches(query, walk->path().string(), name)) continue;
      if (auto file = found(walk->path().string(), name)) matched.push_back(std::move(*file));
    }
  }
  auto newest = FolderAccess::newest(std::move(matched), limit);
  result.files = std::move(newest.files);
  result.truncated = newest.truncated;
  return result;
}

}  // namespace quarl

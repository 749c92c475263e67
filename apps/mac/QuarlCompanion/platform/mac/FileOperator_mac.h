#pragma once

#include <chrono>

#include "platform/HomeFileOperator.h"

namespace quarl {

// The file operator of the Mac. A search asks Spotlight, over the search roots, for files whose
// name or text holds every word; each find then goes through the same rules as a folder's.
// Files in iCloud that are not downloaded are found, said to be only in the cloud, and never
// opened, since opening one would download it.
class SpotlightFileOperator final : public HomeFileOperator {
 public:
  struct Limits {
    std::chrono::milliseconds searchTime{10'000};
    std::size_t gatheredMax = 1'000;  // Spotlight's newest finds looked at; the rest count as more
    std::int64_t contentReadMax = 1'000'000;  // bytes of one file whose text a folder's listing searches
  };

  SpotlightFileOperator(const std::string& home, DocumentReader reader, Limits limits,
                        const std::vector<std::string>& ownFolders);

  Found search(const FileQuery& query, std::size_t limit) override;

 private:
  bool isCloudOnly(const std::string& path) const override;

  Limits limits_;
};

}  // namespace quarl

#pragma once

#include <chrono>

#include "platform/HomeFileOperator.h"

namespace quarl {

// The file operator of the Linux host. Searching walks the search roots within a time limit,
// matching names and, for text-like documents, their text; nothing like the Mac's consent
// guards the protected folders here, and no file is only in the cloud.
class LinuxFileOperator final : public HomeFileOperator {
 public:
  struct Limits {
    std::chrono::milliseconds searchTime{10'000};
    std::size_t entriesMax = 1'000'000;  // entries one search may visit
    std::int64_t contentReadMax = 1'000'000;  // bytes of one file whose text is searched
  };

  LinuxFileOperator(const std::string& home, DocumentReader reader, Limits limits,
                    const std::vector<std::string>& ownFolders = {});

  Found search(const FileQuery& query, std::size_t limit) override;

 private:
  bool isCloudOnly(const std::string&) const override { return false; }

  Limits limits_;
};

}  // namespace quarl

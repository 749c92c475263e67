#pragma once

#include <map>
#include <optional>
#include <string>

#include "FoundFile.h"

namespace quarl {

// The files one run's searches found, by the references handed to the service for them. The
// service can name a file only by a reference from this table, never by a path, and a new run
// starts with a new table, so a reference from another run opens nothing.
class FileRefTable {
 public:
  explicit FileRefTable(std::string runId) : runId_(std::move(runId)) {}

  const std::string& runId() const { return runId_; }
  // Gives `file` a fresh, unguessable reference and remembers it.
  void mint(FoundFile& file);
  std::optional<FoundFile> find(const std::string& ref) const;

 private:
  std::string runId_;
  std::map<std::string, FoundFile> files_;
};

}  // namespace quarl

#pragma once

#include <boost/asio/awaitable.hpp>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "FileQuery.h"
#include "FileUploader.h"
#include "FoundFile.h"

namespace quarl {

// A document's text as the platform read it, or the sentence that says why not.
struct DocumentText {
  std::string text;
  bool truncated = false;
  std::optional<std::int64_t> pages;
  std::optional<std::int64_t> pagesRead;
  std::optional<std::string> failure;

  // A reading that failed, with the sentence that says why.
  static DocumentText failed(std::string_view sentence) { return {{}, false, {}, {}, std::string(sentence)}; }
  // The whole text of a document, as its reader took it out.
  static DocumentText whole(std::string text) { return {std::move(text), false, {}, {}, std::nullopt}; }
};

// The platform's work on the owner's files. Every path it hands back is resolved (links, "..",
// and on a case-insensitive volume the case on disk), so the rules judge where a file really
// is. The blocking calls run on a worker.
class MacFileOperator {
 public:
  struct Found {
    std::vector<FoundFile> files;
    bool truncated = false;
    bool finished = true;  // false when the time ran out before the search did
  };

  virtual ~MacFileOperator() = default;
  // The owner's home folder, resolved.
  virtual std::string home() const = 0;
  // The companion's own folders (its settings and credentials), resolved: never opened for a step.
  virtual std::vector<std::string> ownFolders() const = 0;
  // Files whose name or text holds every word of `query`, newest first. Blocks.
  virtual Found search(const FileQuery& query, std::size_t limit) = 0;
  // The resolved path of `path`; none when nothing is there. Blocks.
  virtual std::optional<std::string> resolve(const std::string& path) = 0;
  virtual bool isFolder(const std::string& resolved) = 0;
  // Whether the system lets Quarl look in one of its protected home folders. Blocks: the first
  // time, the system may ask the owner.
  virtual bool mayOpenProtected(std::string_view folder) = 0;
  // The files directly in the resolved folder, those matching `query` when it has one. Blocks.
  virtual std::vector<FoundFile> listFolder(const std::string& resolved, const std::optional<FileQuery>& query) = 0;
  struct Present {
    FileIdentity identity;
    std::int64_t bytes = 0;
    bool cloudOnly = false;  // in iCloud now, whatever it was when found
  };
  // Which plain file is at `path` now, without following a link there; none when none is.
  virtual std::optional<Present> present(const std::string& path) = 0;
  // The text of a found document, read from the very file that was found. Blocks.
  virtual DocumentText readText(const FoundFile& file) = 0;
  // The bytes of the very file that was found, to the service in checked chunks.
  virtual boost::asio::awaitable<FileUploader::Result<FileUploader::Uploaded>> upload(FoundFile file, std::string stepId,
                                                                                       UploadTransport& transport) = 0;
};

}  // namespace quarl

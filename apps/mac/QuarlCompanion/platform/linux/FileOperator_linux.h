#pragma once

#include <chrono>
#include <functional>

#include "platform/MacFileOperator.h"

namespace quarl {

// The file operator of the Linux host. Searching walks the home folder's usual folders
// (Documents, Desktop, Downloads, iCloud Drive when there is one) within a time limit,
// matching names and, for text-like documents, their text; nothing like the Mac's consent
// guards the protected folders here.
class LinuxFileOperator final : public MacFileOperator {
 public:
  using DocumentReader = std::function<DocumentText(const FoundFile&)>;

  struct Limits {
    std::chrono::milliseconds searchTime{10'000};
    std::size_t entriesMax = 1'000'000;  // entries one search may visit
    std::int64_t contentReadMax = 1'000'000;  // bytes of one file whose text is searched
  };

  // `home` and `ownFolders` are resolved here; `reader` takes the text out of a found document.
  LinuxFileOperator(const std::string& home, DocumentReader reader, Limits limits,
                    const std::vector<std::string>& ownFolders = {});

  std::string home() const override { return home_; }
  std::vector<std::string> ownFolders() const override { return ownFolders_; }
  Found search(const FileQuery& query, std::size_t limit) override;
  std::optional<std::string> resolve(const std::string& path) override;
  bool isFolder(const std::string& resolved) override;
  bool mayOpenProtected(std::string_view) override { return true; }
  std::vector<FoundFile> listFolder(const std::string& resolved, const std::optional<FileQuery>& query) override;
  std::optional<Present> present(const std::string& path) override;
  DocumentText readText(const FoundFile& file) override { return reader_(file); }
  boost::asio::awaitable<FileUploader::Result<FileUploader::Uploaded>> upload(FoundFile file, std::string stepId,
                                                                               UploadTransport& transport) override;

  // Reads in this process: for tests and benchmarks.
  static DocumentReader readerInProcess();
  // Reads in a child, `executable extract-text …`, ended after `timeout`.
  static DocumentReader readerInChild(std::string executable, std::chrono::milliseconds timeout);

 private:
  // The file `entry` names as a found file, resolved; none when it is no plain file.
  std::optional<FoundFile> found(const std::string& entry, const std::string& name) const;
  // Whether the file's name, or the text of a text-like file, holds every word. Matching comes
  // before anything else is asked of the volume, since most files do not match.
  bool matches(const FileQuery& query, const std::string& path, const std::string& name) const;

  std::string home_;
  std::vector<std::string> ownFolders_;
  DocumentReader reader_;
  Limits limits_;
};

}  // namespace quarl

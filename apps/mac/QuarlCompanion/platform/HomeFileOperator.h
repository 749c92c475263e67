#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/DocumentReading.h"
#include "platform/MacFileOperator.h"

namespace quarl {

// The work on the owner's files that every host does alike, through the same POSIX calls:
// resolving, listing one folder, telling which file is at a path, reading and uploading the
// very file that was found. How a search finds files, and which files are only a placeholder
// of a copy in the cloud, each host says for itself.
class HomeFileOperator : public MacFileOperator {
 public:
  std::string home() const override { return home_; }
  std::vector<std::string> ownFolders() const override { return ownFolders_; }
  std::optional<std::string> resolve(const std::string& path) override;
  bool isFolder(const std::string& resolved) override;
  // Whether the folder can be opened for listing: the system refuses a protected one until the
  // owner consents.
  bool mayOpenProtected(std::string_view folder) override;
  std::vector<FoundFile> listFolder(const std::string& resolved, const std::optional<FileQuery>& query) override;
  std::optional<Present> present(const std::string& path) override;
  DocumentText readText(const FoundFile& file) override { return reader_(file); }
  boost::asio::awaitable<FileUploader::Result<FileUploader::Uploaded>> upload(FoundFile file, std::string stepId,
                                                                               UploadTransport& transport) override;

  // The folders a search looks in: Documents, Desktop, Downloads and iCloud Drive.
  std::vector<std::string> searchRoots() const;
  // A file the system's index says matches `query`, as a search hands it back: none when it
  // or a folder it is in below the home folder is hidden or of secrets, when it is no plain
  // file, or when it is off limits and only its text matched, since the text of a secret is
  // never searched.
  std::optional<FoundFile> foundByIndex(const std::string& path, const FileQuery& query) const;

 protected:
  // `home` and `ownFolders` are resolved here; `reader` takes the text out of a found document;
  // a file's text is searched only as far as `contentReadMax` bytes.
  HomeFileOperator(const std::string& home, DocumentReader reader, std::int64_t contentReadMax,
                   const std::vector<std::string>& ownFolders);

  static bool hidden(const std::string& name) { return name.empty() || name.front() == '.'; }
  // Whether the file at `path` is a placeholder whose bytes are in the cloud: opening it would
  // download it.
  virtual bool isCloudOnly(const std::string& path) const = 0;
  // The file `entry` names as a found file, resolved; none when it is no plain file.
  std::optional<FoundFile> found(const std::string& entry, const std::string& name) const;
  // Whether the file's name, or the text of a text-like file, holds every word. Matching comes
  // before anything else is asked of the volume, since most files do not match.
  bool matches(const FileQuery& query, const std::string& path, const std::string& name) const;

 private:
  std::string home_;
  std::vector<std::string> ownFolders_;
  DocumentReader reader_;
  std::int64_t contentReadMax_;
};

}  // namespace quarl

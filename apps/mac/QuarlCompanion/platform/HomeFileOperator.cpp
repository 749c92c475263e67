#include "platform/HomeFileOperator.h"

#include <dirent.h>

#include <cerrno>
#include <filesystem>

#include "FileReadPolicy.h"
#include "FileText.h"
#include "FolderAccess.h"
#include "MacPermissionPolicy.h"
#include "Utf16Text.h"
#include "platform/FileStatus.h"

namespace quarl {
namespace fs = std::filesystem;

namespace {

std::optional<std::string> realPath(const std::string& path) {
  std::error_code error;
  auto resolved = fs::canonical(path, error);
  if (error) return std::nullopt;
  return resolved.string();
}

// The text a search looks through: that of text-like plain files, read up to `limit` bytes.
std::optional<std::string> searchableText(const std::string& path, std::int64_t limit) {
  const auto form = FileText::formOf(path);
  if (form != FileText::Form::plain && form != FileText::Form::html) return std::nullopt;
  const auto file = openPlainFile(path);
  if (file.fd() < 0) return std::nullopt;
  return readUpTo(file.fd(), limit);
}

}  // namespace

HomeFileOperator::HomeFileOperator(const std::string& home, DocumentReader reader, std::int64_t contentReadMax,
                                   const std::vector<std::string>& ownFolders)
    : home_(realPath(home).value_or(home)), reader_(std::move(reader)), contentReadMax_(contentReadMax) {
  for (const auto& folder : ownFolders) ownFolders_.push_back(realPath(folder).value_or(folder));
}

std::vector<std::string> HomeFileOperator::searchRoots() const {
  return {home_ + "/Documents", home_ + "/Desktop", home_ + "/Downloads",
          home_ + "/" + std::string(MacPermissionPolicy::iCloudDriveFolder)};
}

std::optional<FoundFile> HomeFileOperator::found(const std::string& entry, const std::string& name) const {
  auto path = realPath(entry);
  if (!path) return std::nullopt;
  const auto status = plainFileAt(*path);
  if (!status) return std::nullopt;
  FoundFile file;
  file.name = repairedUtf8(name);
  file.folder = FolderAccess::folderKind(*path, home_);
  file.bytes = status->bytes;
  file.modifiedAt = status->modifiedAt;
  file.cloudOnly = isCloudOnly(*path);
  file.path = std::move(*path);
  file.identity = status->identity;
  return file;
}

bool HomeFileOperator::matches(const FileQuery& query, const std::string& path, const std::string& name) const {
  if (query.matches(searchFolded(name))) return true;
  // The text of a secret is never read, not even to say whether a word is in it; a link is
  // judged where it leads. Nor is a file in the cloud, which reading would download.
  const auto target = fs::is_symlink(path) ? realPath(path) : std::optional<std::string>(path);
  if (!target || FileReadPolicy::isOffLimits(*target, home_, ownFolders_) || isCloudOnly(*target)) return false;
  const auto text = searchableText(*target, contentReadMax_);
  return text && query.matches(searchFolded(*text));
}

std::optional<FoundFile> HomeFileOperator::foundByIndex(const std::string& path, const FileQuery& query) const {
  const fs::path given(path);
  const auto name = given.filename().string();
  if (hidden(name)) return std::nullopt;
  // A walk never enters a hidden folder or one of secrets, so neither does a search: nothing
  // in one is handed back, whatever its name.
  for (const auto& folder : given.parent_path().lexically_relative(home_)) {
    if (hidden(folder.string()) || FileReadPolicy::isSecret(folder.string())) return std::nullopt;
  }
  auto file = found(path, name);
  if (!file) return std::nullopt;
  if (!query.matches(searchFolded(name)) && FileReadPolicy::isOffLimits(file->path, home_, ownFolders_)) {
    return std::nullopt;
  }
  return file;
}

std::optional<std::string> HomeFileOperator::resolve(const std::string& path) { return realPath(path); }

bool HomeFileOperator::isFolder(const std::string& resolved) {
  std::error_code error;
  return fs::is_directory(resolved, error);
}

bool HomeFileOperator::mayOpenProtected(std::string_view folder) {
  DIR* opened = ::opendir((home_ + "/" + std::string(folder)).c_str());
  if (!opened) return errno != EPERM && errno != EACCES;
  ::closedir(opened);
  return true;
}

std::vector<FoundFile> HomeFileOperator::listFolder(const std::string& resolved, const std::optional<FileQuery>& query) {
  std::vector<FoundFile> files;
  std::error_code error;
  for (fs::directory_iterator entries(resolved, fs::directory_options::skip_permission_denied, error);
       !error && entries != fs::directory_iterator(); entries.increment(error)) {
    const auto name = entries->path().filename().string();
    if (hidden(name)) continue;
    if (query && !matches(*query, entries->path().string(), name)) continue;
    if (auto file = found(entries->path().string(), name)) files.push_back(std::move(*file));
  }
  return files;
}

std::optional<MacFileOperator::Present> HomeFileOperator::present(const std::string& path) {
  const auto status = plainFileAt(path);
  if (!status) return std::nullopt;
  return Present{status->identity, status->bytes, isCloudOnly(path)};
}

boost::asio::awaitable<FileUploader::Result<FileUploader::Uploaded>> HomeFileOperator::upload(
    FoundFile file, std::string stepId, UploadTransport& transport) {
  // The chunks are read through this descriptor's /dev/fd name, so every read is of the file
  // that was checked here, whatever is put at its path meanwhile. On a Mac each open of that
  // name shares the descriptor's offset, which is why every slice is read after a seek.
  const auto opened = openFoundFile(file.path, file.identity);
  if (opened.fd() < 0) co_return FileUploadFailure(FileUploadFailure::Kind::moved);
  const auto name = "/dev/fd/" + std::to_string(opened.fd());
  co_return co_await FileUploader::upload(name, std::move(stepId), transport);
}

}  // namespace quarl

#include "FileOperator_linux.h"

#include <filesystem>
#include <fstream>

#include "ChildProcess.h"
#include "DocumentText_linux.h"
#include "FileReadPolicy.h"
#include "FileStatus_linux.h"
#include "FileText.h"
#include "FolderAccess.h"
#include "MacPermissionPolicy.h"
#include "Utf16Text.h"

namespace quarl {
namespace fs = std::filesystem;
using namespace std::chrono;

namespace {

std::optional<std::string> realPath(const std::string& path) {
  std::error_code error;
  auto resolved = fs::canonical(path, error);
  if (error) return std::nullopt;
  return resolved.string();
}

bool hidden(const std::string& name) { return name.empty() || name.front() == '.'; }

// The text a search looks through: that of text-like documents, read up to `limit` bytes.
std::optional<std::string> searchableText(const std::string& path, std::int64_t limit) {
  const auto form = FileText::formOf(path);
  if (form != FileText::Form::plain && form != FileText::Form::html) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::string bytes(static_cast<std::size_t>(limit), '\0');
  file.read(bytes.data(), limit);
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return bytes;
}

}  // namespace

LinuxFileOperator::LinuxFileOperator(const std::string& home, DocumentReader reader, Limits limits,
                                     const std::vector<std::string>& ownFolders)
    : home_(realPath(home).value_or(home)), reader_(std::move(reader)), limits_(limits) {
  for (const auto& folder : ownFolders) ownFolders_.push_back(realPath(folder).value_or(folder));
}

std::optional<FoundFile> LinuxFileOperator::found(const std::string& entry, const std::string& name) const {
  auto path = realPath(entry);
  if (!path) return std::nullopt;
  const auto status = plainFileAt(*path);
  if (!status) return std::nullopt;
  FoundFile file;
  file.name = repairedUtf8(name);
  file.folder = FolderAccess::folderKind(*path, home_);
  file.bytes = status->bytes;
  file.modifiedAt = status->modifiedAt;
  file.path = std::move(*path);
  file.identity = status->identity;
  return file;
}

bool LinuxFileOperator::matches(const FileQuery& query, const std::string& path, const std::string& name) const {
  if (query.matches(searchFolded(name))) return true;
  // The text of a secret is never read, not even to say whether a word is in it; a link is
  // judged where it leads.
  const auto target = fs::is_symlink(path) ? realPath(path) : std::optional<std::string>(path);
  if (!target || FileReadPolicy::isOffLimits(*target, home_, ownFolders_)) return false;
  const auto text = searchableText(*target, limits_.contentReadMax);
  return text && query.matches(searchFolded(*text));
}

MacFileOperator::Found LinuxFileOperator::search(const FileQuery& query, std::size_t limit) {
  const auto deadline = steady_clock::now() + limits_.searchTime;
  Found result;
  std::vector<FoundFile> matched;
  std::size_t visited = 0;
  const std::vector<std::string> roots{home_ + "/Documents", home_ + "/Desktop", home_ + "/Downloads",
                                       home_ + "/" + std::string(MacPermissionPolicy::iCloudDriveFolder)};
  for (const auto& root : roots) {
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

std::optional<std::string> LinuxFileOperator::resolve(const std::string& path) { return realPath(path); }

bool LinuxFileOperator::isFolder(const std::string& resolved) {
  std::error_code error;
  return fs::is_directory(resolved, error);
}

std::vector<FoundFile> LinuxFileOperator::listFolder(const std::string& resolved, const std::optional<FileQuery>& query) {
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

std::optional<MacFileOperator::Present> LinuxFileOperator::present(const std::string& path) {
  const auto status = plainFileAt(path);
  if (!status) return std::nullopt;
  return Present{status->identity, status->bytes};
}

boost::asio::awaitable<FileUploader::Result<FileUploader::Uploaded>> LinuxFileOperator::upload(
    FoundFile file, std::string stepId, UploadTransport& transport) {
  // The chunks are read through this descriptor's /proc name, so every read is of the file
  // that was checked here, whatever is put at its path meanwhile.
  const auto opened = openFoundFile(file.path, file.identity);
  if (opened.fd() < 0) co_return FileUploadFailure(FileUploadFailure::Kind::moved);
  const auto name = "/proc/self/fd/" + std::to_string(opened.fd());
  co_return co_await FileUploader::upload(name, std::move(stepId), transport);
}

LinuxFileOperator::DocumentReader LinuxFileOperator::readerInProcess() {
  return [](const FoundFile& file) { return extractDocumentText(file.path, file.identity); };
}

LinuxFileOperator::DocumentReader LinuxFileOperator::readerInChild(std::string executable,
                                                                    std::chrono::milliseconds timeout) {
  return [executable = std::move(executable), timeout](const FoundFile& file) {
    const auto outcome = runChild(executable,
                                  {"extract-text", std::to_string(file.identity.device),
                                   std::to_string(file.identity.inode), std::to_string(file.identity.bornNs),
                                   file.path},
                                  "", timeout, milliseconds(500));
    if (!outcome.started || outcome.timedOut || outcome.exitCode != 0) {
      return DocumentText{{}, false, {}, {}, std::string(FileText::fileUnreadable)};
    }
    return documentTextFromJson(outcome.output);
  };
}

}  // namespace quarl

#include "FolderAccess.h"

#include <algorithm>

#include "FileReadPolicy.h"
#include "MacPermissionPolicy.h"

namespace quarl {

namespace {

constexpr std::string_view iCloudPrefix = "iCloud Drive";

// Whole components only: /Users/a/Doc never holds /Users/a/Documents.
bool within(std::string_view path, const std::string& folder) { return MacPermissionPolicy::covers(folder, path); }

std::string joined(std::string_view home, std::string_view relative) {
  std::string path(home);
  if (!relative.empty()) path.append("/").append(relative);
  return path;
}

}  // namespace

bool FolderAccess::isValid(std::string_view folder) {
  if (folder.empty() || folder.size() > folderMax) return false;
  if (folder.front() == '/') return MacPermissionPolicy::isValid(folder);
  return MacPermissionPolicy::isValid("/" + std::string(folder));
}

std::string FolderAccess::locate(std::string_view folder, std::string_view home) {
  if (folder.front() == '/') return std::string(folder);
  if (folder == iCloudPrefix || folder.starts_with(std::string(iCloudPrefix) + "/")) {
    return joined(joined(home, MacPermissionPolicy::iCloudDriveFolder), folder.substr(std::min(folder.size(), iCloudPrefix.size() + 1)));
  }
  return joined(home, folder);
}

bool FolderAccess::mayLook(std::string_view path, std::string_view home) {
  if (!within(path, std::string(home)) || FileReadPolicy::isSecret(path)) return false;
  const auto library = joined(home, "Library");
  return !within(path, library) || within(path, joined(home, MacPermissionPolicy::iCloudDriveFolder));
}

std::optional<std::string_view> FolderAccess::protectedFolder(std::string_view path, std::string_view home) {
  for (const auto name : protectedFolders) {
    if (within(path, joined(home, name))) return name;
  }
  return std::nullopt;
}

std::string_view FolderAccess::folderKind(std::string_view path, std::string_view home) {
  if (within(path, joined(home, "Documents"))) return "documents";
  if (within(path, joined(home, "Desktop"))) return "desktop";
  if (within(path, joined(home, "Downloads"))) return "downloads";
  if (within(path, joined(home, MacPermissionPolicy::iCloudDriveFolder))) return "icloud";
  return "other";
}

FolderAccess::Newest FolderAccess::newest(std::vector<FoundFile> files, std::size_t limit) {
  std::stable_sort(files.begin(), files.end(),
                   [](const FoundFile& a, const FoundFile& b) { return a.modifiedAt > b.modifiedAt; });
  const bool truncated = files.size() > limit;
  if (truncated) files.resize(limit);
  return {std::move(files), truncated};
}

}  // namespace quarl

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "FoundFile.h"

namespace quarl {

// Which folders the operator may list, and how one folder's newest files are chosen.
struct FolderAccess {
  // The home folders the system guards with its own consent.
  static constexpr std::string_view protectedFolders[] = {"Desktop", "Documents", "Downloads"};
  static constexpr std::size_t folderMax = 1024;  // bytes of a step's "folder"

  static constexpr std::string_view notLooked = "Quarl does not look in that folder.";
  static constexpr std::string_view noFolder = "There is no folder there, so nothing was listed.";
  static constexpr std::string_view noConsent = "This Mac cannot look in one folder yet, so nothing was listed.";

  // What a step's "folder" may be: an absolute path, or one relative to the home folder
  // ("Documents", "Documents/Taxes", "iCloud Drive/Notes"), every component a name, never "."
  // or "..", so that nothing but resolution can take it elsewhere.
  static bool isValid(std::string_view folder);
  // The absolute path a valid `folder` names; "iCloud Drive" at its front stands for iCloud
  // Drive's folder under `home`.
  static std::string locate(std::string_view folder, std::string_view home);
  // Whether Quarl looks in the resolved folder `path`: inside the home folder, outside the
  // folders of secrets, and outside Library, where apps keep their data, except iCloud Drive.
  static bool mayLook(std::string_view path, std::string_view home);
  // The protected folder that the resolved `path` is in, if any.
  static std::optional<std::string_view> protectedFolder(std::string_view path, std::string_view home);
  // "documents", "desktop", "downloads", "icloud" or "other", for a file at the resolved `path`.
  static std::string_view folderKind(std::string_view path, std::string_view home);

  struct Newest {
    std::vector<FoundFile> files;
    bool truncated = false;
  };
  // The `limit` most recently modified of `files`, newest first.
  static Newest newest(std::vector<FoundFile> files, std::size_t limit);
};

}  // namespace quarl

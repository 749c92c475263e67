#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "MacPermit.h"

namespace quarl {

// Whether a step needs the owner's word first under their mode and standing permits. A step
// not covered is held, not refused: it is answered with a question and what it asks for.
struct MacPermissionPolicy {
  struct Hold {
    std::string sentence;
    MacPermissionAsk asks;
  };

  static constexpr std::string_view grantableActions[] = {"open_app", "press_element", "type_text", "key",
                                                          "scroll",   "move_file",     "rename_file"};
  static constexpr std::string_view iCloudDrive = "iCloud Drive";
  // Where iCloud Drive lives under the home folder.
  static constexpr std::string_view iCloudDriveFolder = "Library/Mobile Documents/com~apple~CloudDocs";
  static constexpr std::int64_t sendAsksFrom = 48'000'000;

  // An act of `kind` in `app` (also known as `alsoKnownAs`, such as its bundle identifier).
  static std::optional<Hold> actHold(std::string_view kind, std::string_view app,
                                     const std::vector<std::string>& alsoKnownAs, const MacPermit& permit);
  // Reading in the folder `path` (already resolved) of the home folder `home`.
  static std::optional<Hold> fileHold(std::string_view path, std::string_view home, const MacPermit& permit);

  // Reading the file `file` (already resolved): its folder's hold, except that a file directly in
  // the home folder is asked about, and granted, alone — allowing it never opens all of home.
  static std::optional<Hold> fileReadHold(std::string_view file, std::string_view home, const MacPermit& permit);
  static std::string homeFileQuestion(std::string_view name);

  // True when `granted` is `path` or a folder above it; both must be valid.
  static bool covers(std::string_view granted, std::string_view path);
  // An absolute path whose every component is a name: no empty, "." or ".." component and no
  // trailing "/".
  static bool isValid(std::string_view dir);
  // How a folder is named to the owner: "iCloud Drive" for any folder inside it, "your home
  // folder", a path relative to the home folder, or the path itself.
  static std::string displayDir(std::string_view path, std::string_view home);
  static std::string folderQuestion(std::string_view folder);
  static std::string appQuestion(std::string_view kind, std::string_view app);
  // "send_file" asks in every mode from 48,000,000 bytes on.
  static std::optional<std::string> sendAlwaysAsks(std::string_view name, std::int64_t bytes);
};

}  // namespace quarl

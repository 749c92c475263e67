#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quarl {

// Which of the owner's files the operator may read or send at all, whatever their mode says.
// Paths are judged after they are resolved, so a link or ".." cannot walk around these rules.
struct FileReadPolicy {
  static constexpr std::string_view deniedFolders[] = {".ssh", ".gnupg", "keychains"};
  static constexpr std::string_view deniedExtensions[] = {"kdbx", "1pux", "pem", "p12",        "pfx",
                                                          "p8",   "keychain", "keychain-db", "opvault"};
  // The only files "read_file" reads.
  static constexpr std::string_view documentExtensions[] = {
      "pdf", "txt", "text", "md",  "markdown", "rtf", "rtfd", "doc", "docx", "odt",       "html",
      "htm", "csv", "tsv",  "json", "xml",     "yaml", "yml", "log", "tex",  "webarchive"};
  static constexpr std::int64_t unpressedMaxBytes = 48'000'000;

  static constexpr std::string_view notFoundByRun =
      "That file was not found by this run's own search, so Quarl did not open it.";
  static constexpr std::string_view movedSinceFound =
      "That file is not where this run's search found it any more, so Quarl did not open it. Search again.";
  static constexpr std::string_view secret =
      "Quarl never reads keys, passwords or secrets on the Mac, so it did not open that file.";
  static constexpr std::string_view notADocument =
      "Quarl reads documents only (PDF, Word, text and the like), so it did not read that file.";
  static constexpr std::string_view cloudOnly =
      "That file is in iCloud and not downloaded to the Mac, so Quarl did not fetch it.";

  // The extension after the last "." of the last component, lower-cased; empty when none.
  static std::string extension(std::string_view path);
  // Inside a denied folder (any component, in any case, as case-insensitive volumes see it) or
  // with a denied extension.
  static bool isSecret(std::string_view path);
  static bool isDocument(std::string_view path);
  // A secret, anything in a hidden folder of the home folder (".config", ".aws", ".docker" and
  // the like, where tools keep credentials), or anything in one of the companion's own folders,
  // wherever they are. Never listed, searched or read.
  static bool isOffLimits(std::string_view path, std::string_view home, const std::vector<std::string>& ownFolders);
};

}  // namespace quarl

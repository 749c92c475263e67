#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarl {

// The words a "list_files" search looks for, compared without case or diacritics. A file
// matches when every word is in its name, or every word is in its text.
struct FileQuery {
  static constexpr std::string_view noWords = "That search has no words Quarl can look for.";
  static constexpr std::string_view unfinished = "The search of the Mac's files did not finish.";

  std::vector<std::string> words;  // folded
  // The words as they were typed, for an index that compares without case or diacritics itself
  // and would not know "strasse" from the "Straße" it has.
  std::vector<std::string> typedWords;

  // None when the query leaves nothing to look for: only spaces, punctuation or wildcards.
  static std::optional<FileQuery> from(std::string_view query);
  // `text` must already be folded with searchFolded.
  bool matches(std::string_view foldedText) const;
};

}  // namespace quarl

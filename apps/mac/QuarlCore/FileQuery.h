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
  // A word as it was typed, and the folded words it stands for. An index that compares
  // without case or diacritics itself is given both: it would not know "strasse" from the
  // "Straße" it has, nor split "Ａ！Ｂ" or a word joined by a no-break space as folding does.
  struct TypedWord {
    std::string typed;
    std::vector<std::string> folded;
  };
  std::vector<TypedWord> typedWords;

  // None when the query leaves nothing to look for: only spaces, punctuation or wildcards.
  static std::optional<FileQuery> from(std::string_view query);
  // `text` must already be folded with searchFolded.
  bool matches(std::string_view foldedText) const;
};

}  // namespace quarl

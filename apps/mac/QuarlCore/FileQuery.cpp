#include "FileQuery.h"

#include <algorithm>

#include "Utf16Text.h"

namespace quarl {

namespace {

// Letters and digits of any script are word characters; ASCII punctuation, spaces and the
// wildcards "*" and "?" separate words.
bool separates(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x80 && !std::isalnum(byte);
}

// The words of `text`, in order, each once.
std::vector<std::string> wordsOf(std::string_view text) {
  std::vector<std::string> words;
  std::string word;
  for (const char c : std::string(text) + " ") {
    if (!separates(c)) {
      word += c;
    } else if (!word.empty()) {
      if (std::find(words.begin(), words.end(), word) == words.end()) words.push_back(word);
      word.clear();
    }
  }
  return words;
}

}  // namespace

std::optional<FileQuery> FileQuery::from(std::string_view query) {
  FileQuery result;
  // Folding splits a typed word at a no-break or ideographic space or at full-width punctuation,
  // and empties a lone accent: a typed word stays only when its folding left a word to match.
  for (auto& typed : wordsOf(repairedUtf8(query))) {
    auto folded = wordsOf(searchFolded(typed));
    if (folded.empty()) continue;
    for (const auto& word : folded) {
      if (std::find(result.words.begin(), result.words.end(), word) == result.words.end()) result.words.push_back(word);
    }
    result.typedWords.push_back({std::move(typed), std::move(folded)});
  }
  if (result.words.empty()) return std::nullopt;
  return result;
}

bool FileQuery::matches(std::string_view foldedText) const {
  return std::all_of(words.begin(), words.end(),
                     [&](const std::string& word) { return foldedText.find(word) != std::string_view::npos; });
}

}  // namespace quarl

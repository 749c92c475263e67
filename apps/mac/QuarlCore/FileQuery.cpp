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

}  // namespace

std::optional<FileQuery> FileQuery::from(std::string_view query) {
  const auto folded = searchFolded(query);
  FileQuery result;
  std::string word;
  for (const char c : folded + " ") {
    if (!separates(c)) {
      word += c;
    } else if (!word.empty()) {
      if (std::find(result.words.begin(), result.words.end(), word) == result.words.end()) result.words.push_back(word);
      word.clear();
    }
  }
  if (result.words.empty()) return std::nullopt;
  return result;
}

bool FileQuery::matches(std::string_view foldedText) const {
  return std::all_of(words.begin(), words.end(),
                     [&](const std::string& word) { return foldedText.find(word) != std::string_view::npos; });
}

}  // namespace quarl

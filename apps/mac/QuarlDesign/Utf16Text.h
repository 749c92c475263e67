#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quarl {

// Text limits of the product are counted in UTF-16 code units, the unit the service and
// the Mac count in. These helpers take UTF-8 and always give back valid UTF-8: a byte
// sequence that is not UTF-8 counts, and comes back, as U+FFFD.

// The number of UTF-16 code units of `text`.
std::size_t utf16Length(std::string_view text);

// The longest prefix of `text` of at most `limit` UTF-16 code units. A character outside
// the Basic Multilingual Plane takes two units and is never split: if only one unit is
// left, the character is left out.
std::string utf16Prefix(std::string_view text, std::size_t limit);

// Whether `text` is well-formed UTF-8 throughout.
bool isValidUtf8(std::string_view text);

// The number of characters of `text` as a person counts them: extended grapheme clusters, so
// "é" written as e + U+0301, or a family emoji joined with U+200D, is one.
std::size_t graphemeCount(std::string_view text);

// The first `count` grapheme clusters of `text`, never cutting one in two.
std::string graphemePrefix(std::string_view text, std::size_t count);

// `text` with every byte that does not begin a well-formed UTF-8 sequence replaced by U+FFFD,
// so that text read from outside can be kept and sent without breaking JSON or logs.
std::string repairedUtf8(std::string_view text);

// `text` as searches compare it: case folded and without diacritics, so "Résumé" and "RESUME"
// are the same words.
std::string searchFolded(std::string_view text);

}  // namespace quarl

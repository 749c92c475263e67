#include "Utf16Text.h"

#include <algorithm>
#include <cstdlib>

#include <utf8proc.h>

namespace quarl {
namespace {

constexpr utf8proc_int32_t replacementCharacter = 0xFFFD;

struct Decoded {
  utf8proc_int32_t codePoint;
  std::size_t bytes;
  bool valid;
};

// One code point from the front of `text`; an invalid sequence gives U+FFFD for its first byte.
Decoded decodeFront(std::string_view text) {
  utf8proc_int32_t codePoint = 0;
  const auto consumed = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                         static_cast<utf8proc_ssize_t>(text.size()), &codePoint);
  if (consumed <= 0) return {replacementCharacter, 1, false};
  return {codePoint, static_cast<std::size_t>(consumed), true};
}

std::size_t utf16Units(utf8proc_int32_t codePoint) { return codePoint > 0xFFFF ? 2 : 1; }

void appendUtf8(std::string& out, utf8proc_int32_t codePoint) {
  utf8proc_uint8_t buffer[4];
  const auto length = utf8proc_encode_char(codePoint, buffer);
  out.append(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(length));
}

}  // namespace

std::size_t utf16Length(std::string_view text) {
  std::size_t units = 0;
  while (!text.empty()) {
    const auto decoded = decodeFront(text);
    units += utf16Units(decoded.codePoint);
    text.remove_prefix(decoded.bytes);
  }
  return units;
}

bool isValidUtf8(std::string_view text) {
  while (!text.empty()) {
    const auto decoded = decodeFront(text);
    if (!decoded.valid) return false;
    text.remove_prefix(decoded.bytes);
  }
  return true;
}

namespace {

// Calls `visit(clusterBytes)` for each grapheme cluster of `text` until it returns false.
template <class Visit>
void forEachGrapheme(std::string_view text, Visit visit) {
  utf8proc_int32_t state = 0;
  utf8proc_int32_t previous = -1;
  std::size_t clusterStart = 0;
  std::size_t at = 0;
  while (at < text.size()) {
    const auto decoded = decodeFront(text.substr(at));
    if (previous >= 0 && utf8proc_grapheme_break_stateful(previous, decoded.codePoint, &state)) {
      if (!visit(text.substr(clusterStart, at - clusterStart))) return;
      clusterStart = at;
    }
    previous = decoded.codePoint;
    at += decoded.bytes;
  }
  if (at > clusterStart) visit(text.substr(clusterStart, at - clusterStart));
}

}  // namespace

std::size_t graphemeCount(std::string_view text) {
  std::size_t count = 0;
  forEachGrapheme(text, [&](std::string_view) {
    ++count;
    return true;
  });
  return count;
}

std::string graphemePrefix(std::string_view text, std::size_t count) {
  std::string out;
  std::size_t taken = 0;
  forEachGrapheme(text, [&](std::string_view cluster) {
    if (taken == count) return false;
    out += repairedUtf8(cluster);
    ++taken;
    return true;
  });
  return out;
}

std::string repairedUtf8(std::string_view text) {
  if (isValidUtf8(text)) return std::string(text);
  std::string out;
  out.reserve(text.size() + 8);
  while (!text.empty()) {
    const auto decoded = decodeFront(text);
    appendUtf8(out, decoded.codePoint);
    text.remove_prefix(decoded.bytes);
  }
  return out;
}

std::string utf16Prefix(std::string_view text, std::size_t limit) {
  std::string out;
  out.reserve(std::min(text.size(), limit * 3));
  std::size_t units = 0;
  while (!text.empty()) {
    const auto decoded = decodeFront(text);
    units += utf16Units(decoded.codePoint);
    if (units > limit) break;
    appendUtf8(out, decoded.codePoint);
    text.remove_prefix(decoded.bytes);
  }
  return out;
}


std::string searchFolded(std::string_view text) {
  // Most names and notes are plain ASCII, which has no diacritics and folds by lower case.
  if (std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
    std::string lowered(text);
    for (auto& c : lowered) c = (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
    return lowered;
  }
  const auto repaired = repairedUtf8(text);
  utf8proc_uint8_t* folded = nullptr;
  const auto length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(repaired.data()),
                                   static_cast<utf8proc_ssize_t>(repaired.size()), &folded,
                                   static_cast<utf8proc_option_t>(UTF8PROC_DECOMPOSE | UTF8PROC_COMPAT |
                                                                  UTF8PROC_CASEFOLD | UTF8PROC_STRIPMARK));
  if (length < 0) return repaired;
  std::string out(reinterpret_cast<const char*>(folded), static_cast<std::size_t>(length));
  std::free(folded);
  return out;
}

}  // namespace quarl

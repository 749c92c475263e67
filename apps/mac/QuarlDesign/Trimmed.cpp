#include "Trimmed.h"

namespace quarl {

std::string_view trimmed(std::string_view text, std::string_view spaces) {
  const auto first = text.find_first_not_of(spaces);
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(spaces);
  return text.substr(first, last - first + 1);
}

}  // namespace quarl

#pragma once

#include <string_view>

namespace quarl {

// `text` without the characters of `spaces` at either end; a view into `text`.
std::string_view trimmed(std::string_view text, std::string_view spaces = " \t\r\n\v\f");

}  // namespace quarl

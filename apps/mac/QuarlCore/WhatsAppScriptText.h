#pragma once

#include <string>
#include <string_view>

namespace quarl::WhatsAppWeb {

// `text` made safe to splice between quotes of either kind in a page script: a backslash before
// every backslash and quote; line feed, carriage return, U+2028 and U+2029, which would end the
// literal, as their escapes. The carriage return is escaped too: a reply written with CR LF
// line ends would otherwise break the script it is spliced into.
std::string escapeJS(std::string_view text);

}  // namespace quarl::WhatsAppWeb

#include "WhatsAppScriptText.h"

namespace quarl::WhatsAppWeb {

std::string escapeJS(std::string_view text) {
  constexpr std::string_view lineSeparator = "\xE2\x80\xA8", paragraphSeparator = "\xE2\x80\xA9";
  std::string escaped;
  escaped.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (text.substr(at).starts_with(lineSeparator)) {
      escaped += "\\u2028";
      at += lineSeparator.size() - 1;
    } else if (text.substr(at).starts_with(paragraphSeparator)) {
      escaped += "\\u2029";
      at += paragraphSeparator.size() - 1;
    } else if (c == '\\' || c == '\'' || c == '"') {
      escaped += '\\';
      escaped += c;
    } else if (c == '\n') {
      escaped += "\\n";
    } else if (c == '\r') {
      escaped += "\\r";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

}  // namespace quarl::WhatsAppWeb

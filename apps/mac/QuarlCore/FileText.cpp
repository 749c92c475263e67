#include "FileText.h"

#include <boost/regex.hpp>
#include <cstdint>

#include "FileReadPolicy.h"
#include "Utf16Text.h"

namespace quarl {

namespace {

void appendCodePoint(std::string& out, std::uint32_t c) {
  if (c == 0 || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
  if (c < 0x80) {
    out += char(c);
  } else if (c < 0x800) {
    out += char(0xC0 | (c >> 6));
    out += char(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += char(0xE0 | (c >> 12));
    out += char(0x80 | ((c >> 6) & 0x3F));
    out += char(0x80 | (c & 0x3F));
  } else {
    out += char(0xF0 | (c >> 18));
    out += char(0x80 | ((c >> 12) & 0x3F));
    out += char(0x80 | ((c >> 6) & 0x3F));
    out += char(0x80 | (c & 0x3F));
  }
}

// The character a reference between "&" and ";" stands for; none when it is not one we know,
// and then it is kept as written.
bool decodeReference(std::string_view name, std::string& out) {
  static constexpr std::pair<std::string_view, std::string_view> named[] = {
      {"amp", "&"}, {"lt", "<"}, {"gt", ">"}, {"quot", "\""}, {"apos", "'"}, {"nbsp", " "}};
  for (const auto& [key, text] : named) {
    if (name == key) {
      out += text;
      return true;
    }
  }
  if (name.size() < 2 || name.front() != '#') return false;
  const bool hex = name[1] == 'x' || name[1] == 'X';
  const auto digits = name.substr(hex ? 2 : 1);
  if (digits.empty() || digits.size() > 8) return false;
  std::uint32_t value = 0;
  for (const char c : digits) {
    const int digit = std::isdigit(static_cast<unsigned char>(c))     ? c - '0'
                      : hex && std::isxdigit(static_cast<unsigned char>(c)) ? (std::tolower(c) - 'a' + 10)
                                                                        : -1;
    if (digit < 0) return false;
    value = value * (hex ? 16 : 10) + static_cast<std::uint32_t>(digit);
  }
  appendCodePoint(out, value);
  return true;
}

void appendDecoded(std::string& out, std::string_view text) {
  while (!text.empty()) {
    const auto amp = text.find('&');
    out += text.substr(0, amp);
    if (amp == std::string_view::npos) return;
    text.remove_prefix(amp);
    const auto semicolon = text.find(';');
    if (semicolon != std::string_view::npos && semicolon <= 10 && decodeReference(text.substr(1, semicolon - 1), out)) {
      text.remove_prefix(semicolon + 1);
    } else {
      out += '&';
      text.remove_prefix(1);
    }
  }
}

// The element name of a tag's inside ("w:t xml:space=..." → "w:t", "/w:p" → "/w:p").
std::string_view tagName(std::string_view inside) {
  const auto end = inside.find_first_of(" \t\r\n/>", inside.starts_with('/') ? 1 : 0);
  return inside.substr(0, end);
}

// Walks an XML text: `onTag(name, inside)` for every tag, `onText(text)` for the text between.
template <class Tag, class Text>
void walkXml(std::string_view xml, Tag onTag, Text onText) {
  while (!xml.empty()) {
    const auto open = xml.find('<');
    if (open != 0) onText(xml.substr(0, open));
    if (open == std::string_view::npos) return;
    const auto close = xml.find('>', open);
    if (close == std::string_view::npos) return;
    const auto inside = xml.substr(open + 1, close - open - 1);
    onTag(tagName(inside), inside);
    xml.remove_prefix(close + 1);
  }
}

// Lines trimmed at their ends, and never more than one empty line in a row.
std::string tidyLines(std::string_view text) {
  std::string out;
  int blankRun = 0;
  std::size_t start = 0;
  while (start <= text.size()) {
    const auto end = std::min(text.find('\n', start), text.size());
    auto line = text.substr(start, end - start);
    const auto first = line.find_first_not_of(" \t\r\f\v");
    line = first == std::string_view::npos ? std::string_view{} : line.substr(first, line.find_last_not_of(" \t\r\f\v") - first + 1);
    blankRun = line.empty() ? blankRun + 1 : 0;
    if (blankRun <= 1) out.append(line).append("\n");
    start = end + 1;
  }
  const auto last = out.find_last_not_of('\n');
  const auto firstText = out.find_first_not_of('\n');
  if (last == std::string::npos) return "";
  return out.substr(firstText, last - firstText + 1);
}

}  // namespace

FileText::Form FileText::formOf(std::string_view path) {
  const auto extension = FileReadPolicy::extension(path);
  for (const auto plain : {"txt", "text", "md", "markdown", "csv", "tsv", "json", "xml", "yaml", "yml", "log", "tex"}) {
    if (extension == plain) return Form::plain;
  }
  if (extension == "html" || extension == "htm") return Form::html;
  if (extension == "pdf") return Form::pdf;
  return Form::rich;
}

std::string FileText::fromPlain(std::string_view bytes) {
  if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
  return repairedUtf8(bytes);
}

std::string FileText::fromHtml(std::string_view html) {
  using boost::regex;
  static const regex comments(R"(<!--[\s\S]*?-->)");
  static const regex scriptsAndStyles(R"(<(script|style)[^>]*>[\s\S]*?</\1>)", regex::icase);
  static const regex lineEnds(R"(<br\s*/?>|</p>|</div>|</li>)", regex::icase);
  // Beyond those, the ends of headings and other blocks start a new line too, so that text
  // from two blocks never runs together.
  static const regex blockEnds(R"(</(h[1-6]|tr|table|section|article|header|footer|blockquote|pre|ul|ol|dt|dd|title)\s*>)",
                               regex::icase);
  static const regex tags(R"(<[^>]*>)");
  auto text = boost::regex_replace(repairedUtf8(html), comments, "");
  text = boost::regex_replace(text, scriptsAndStyles, "");
  text = boost::regex_replace(text, lineEnds, "\n");
  text = boost::regex_replace(text, blockEnds, "\n");
  text = boost::regex_replace(text, tags, "");
  std::string decoded;
  appendDecoded(decoded, text);
  return tidyLines(decoded);
}

std::string FileText::fromWordXml(std::string_view documentXml) {
  std::string out;
  bool inText = false;
  walkXml(
      documentXml,
      [&](std::string_view name, std::string_view inside) {
        const bool selfClosing = inside.ends_with('/');
        if (name == "w:t") inText = !selfClosing;
        else if (name == "/w:t") inText = false;
        else if (name == "w:tab") out += '\t';
        else if (name == "w:br" || name == "w:cr" || name == "/w:p") out += '\n';
      },
      [&](std::string_view text) {
        if (inText) appendDecoded(out, text);
      });
  return tidyLines(repairedUtf8(out));
}

std::string FileText::fromOpenDocumentXml(std::string_view contentXml) {
  std::string out;
  bool inBody = false;
  walkXml(
      contentXml,
      [&](std::string_view name, std::string_view inside) {
        if (name == "office:body") inBody = true;
        else if (name == "/office:body") inBody = false;
        else if (!inBody) return;
        else if (name == "/text:p" || name == "/text:h" || name == "text:line-break") out += '\n';
        else if (name == "text:tab") out += '\t';
        else if (name == "text:s") {
          // <text:s text:c="3"/> stands for three spaces; without a count, one.
          static const boost::regex count(R"re(text:c\s*=\s*"(\d{1,4})")re");
          boost::match_results<std::string_view::const_iterator> match;
          const int spaces = boost::regex_search(inside.begin(), inside.end(), match, count) ? std::stoi(match[1]) : 1;
          out.append(static_cast<std::size_t>(spaces), ' ');
        }
      },
      [&](std::string_view text) {
        if (inBody) appendDecoded(out, text);
      });
  return tidyLines(repairedUtf8(out));
}

}  // namespace quarl

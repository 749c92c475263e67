#pragma once

#include <string>
#include <string_view>

namespace quarl {

// Turns the documents "read_file" reads into plain text. Pure: the bytes come from the file
// operator, which also cuts long text to what a step's answer may carry.
struct FileText {
  static constexpr std::string_view pdfUnopenable = "That PDF could not be opened.";
  static constexpr std::string_view pdfWithoutText = "That PDF has no text Quarl can read on the Mac (it may be a scan).";
  static constexpr std::string_view documentUnreadable = "That document could not be read.";
  static constexpr std::string_view fileUnreadable = "That file could not be read.";

  // How a document's text is taken out, by its extension: plain text and HTML here, PDFs and
  // word processors' documents (`rich`) by the platform's readers.
  enum class Form { plain, html, pdf, rich };
  static Form formOf(std::string_view path);

  // Text as it was written, in UTF-8; a byte order mark goes, bytes that are not UTF-8 become
  // U+FFFD.
  static std::string fromPlain(std::string_view bytes);
  // Script and style elements go whole; line breaks, paragraph, division and list item ends
  // become line ends; the rest of the markup goes and character references are decoded.
  static std::string fromHtml(std::string_view html);
  // The text runs of a DOCX body (word/document.xml), paragraphs on their own lines.
  static std::string fromWordXml(std::string_view documentXml);
  // The text of an OpenDocument body (content.xml), paragraphs and headings on their own lines.
  static std::string fromOpenDocumentXml(std::string_view contentXml);
};

}  // namespace quarl

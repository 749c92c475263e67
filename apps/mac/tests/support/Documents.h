#pragma once

#include <zip.h>

#include <string>
#include <utility>
#include <vector>

namespace quarl::testing {

// A PDF whose every page shows its lines of text in Helvetica; a page without lines has no text
// at all, as a scan has none. The cross-reference table is exact, so readers need not repair it.
inline std::string pdfWithPages(const std::vector<std::vector<std::string>>& pages) {
  std::string kids;
  for (std::size_t i = 0; i < pages.size(); ++i) kids += std::to_string(4 + 2 * i) + " 0 R ";
  std::vector<std::string> objects{  // object n is objects[n - 1]; page i is 4 + 2i, its text 5 + 2i
      "<< /Type /Catalog /Pages 2 0 R >>",
      "<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages.size()) + " >>",
      "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"};
  for (std::size_t i = 0; i < pages.size(); ++i) {
    std::string content;
    for (const auto& line : pages[i]) {
      content += '(';
      for (const char c : line) content += std::string(c == '(' || c == ')' || c == '\\' ? "\\" : "") + c;
      content += ") Tj T*\n";
    }
    if (!content.empty()) content = "BT /F1 11 Tf 14 TL 56 760 Td\n" + content + "ET";
    objects.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Resources << /Font << /F1 3 0 R >> >> "
                      "/Contents " + std::to_string(5 + 2 * i) + " 0 R >>");
    objects.push_back("<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content + "\nendstream");
  }
  std::string pdf = "%PDF-1.4\n", xref = "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
  for (std::size_t n = 0; n < objects.size(); ++n) {
    const auto offset = std::to_string(pdf.size());
    xref += std::string(10 - offset.size(), '0') + offset + " 00000 n \n";
    pdf += std::to_string(n + 1) + " 0 obj\n" + objects[n] + "\nendobj\n";
  }
  return pdf + xref + "trailer\n<< /Size " + std::to_string(objects.size() + 1) + " /Root 1 0 R >>\nstartxref\n" +
         std::to_string(pdf.size()) + "\n%%EOF\n";
}

// Writes a ZIP archive at `path` holding `parts` (name, contents), as DOCX and ODT files are.
inline bool writeZip(const std::string& path, const std::vector<std::pair<std::string, std::string>>& parts) {
  int error = 0;
  zip_t* archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  if (!archive) return false;
  for (const auto& [name, contents] : parts) {
    zip_source_t* source = zip_source_buffer(archive, contents.data(), contents.size(), 0);
    if (source && zip_file_add(archive, name.c_str(), source, ZIP_FL_OVERWRITE) >= 0) continue;
    zip_source_free(source);
    zip_discard(archive);
    return false;
  }
  return zip_close(archive) == 0;
}

}  // namespace quarl::testing

#include <poppler-document.h>
#include <poppler-global.h>
#include <poppler-page.h>
#include <zip.h>

#include <memory>

#include "FileText.h"
#include "platform/DocumentReading.h"

namespace quarl {

namespace {

// What one XML part of a DOCX or ODT may inflate to: more is a zip bomb, not a letter.
constexpr zip_uint64_t xmlPartMax = 64'000'000;

void ignorePopplerMessage(const std::string&, void*) {}

// One XML part of a ZIP archive held in memory; none when the archive or the part cannot be
// read, or the part would inflate beyond reason.
std::optional<std::string> zipPart(const std::string& bytes, const char* name) {
  zip_error_t error;
  zip_error_init(&error);
  zip_source_t* source = zip_source_buffer_create(bytes.data(), bytes.size(), 0, &error);
  if (!source) return std::nullopt;
  zip_t* archive = zip_open_from_source(source, ZIP_RDONLY, &error);
  zip_error_fini(&error);
  if (!archive) {
    zip_source_free(source);
    return std::nullopt;
  }
  std::unique_ptr<zip_t, decltype(&zip_discard)> closer(archive, zip_discard);
  zip_stat_t stat;
  if (zip_stat(archive, name, 0, &stat) != 0 || !(stat.valid & ZIP_STAT_SIZE) || stat.size > xmlPartMax) {
    return std::nullopt;
  }
  std::unique_ptr<zip_file_t, decltype(&zip_fclose)> file(zip_fopen(archive, name, 0), zip_fclose);
  if (!file) return std::nullopt;
  std::string part(stat.size, '\0');
  zip_uint64_t done = 0;
  while (done < stat.size) {
    const auto got = zip_fread(file.get(), part.data() + done, stat.size - done);
    if (got <= 0) return std::nullopt;
    done += static_cast<zip_uint64_t>(got);
  }
  return part;
}

}  // namespace

DocumentText pdfDocumentText(const std::string& bytes) {
  poppler::set_debug_error_function(ignorePopplerMessage, nullptr);
  std::unique_ptr<poppler::document> document(
      poppler::document::load_from_raw_data(bytes.data(), static_cast<int>(bytes.size())));
  if (!document || document->is_locked()) return DocumentText::failed(FileText::pdfUnopenable);
  const int pages = document->pages();
  PdfPages read;
  for (int at = 0; at < pages && read.wantsMore(); ++at) {
    std::unique_ptr<poppler::page> page(document->create_page(at));
    const auto utf8 = page ? page->text().to_utf8() : poppler::byte_array();
    read.add(std::string(utf8.data(), utf8.size()));
  }
  return std::move(read).text(pages);
}

// DOCX and ODT through their XML; Linux has no reader for the other word processors' forms.
bool readsRichDocument(std::string_view extension) { return extension == "docx" || extension == "odt"; }

DocumentText richDocumentText(std::string_view extension, const std::string& bytes) {
  if (extension == "docx") {
    const auto xml = zipPart(bytes, "word/document.xml");
    if (!xml) return DocumentText::failed(FileText::documentUnreadable);
    return DocumentText::whole(FileText::fromWordXml(*xml));
  }
  if (extension == "odt") {
    const auto xml = zipPart(bytes, "content.xml");
    if (!xml) return DocumentText::failed(FileText::documentUnreadable);
    return DocumentText::whole(FileText::fromOpenDocumentXml(*xml));
  }
  return DocumentText::failed(FileText::documentUnreadable);
}

}  // namespace quarl

#include "DocumentText_linux.h"

#include <poppler-document.h>
#include <poppler-global.h>
#include <poppler-page.h>
#include <sys/resource.h>
#include <unistd.h>
#include <zip.h>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <iostream>
#include <memory>

#include "FileReadPolicy.h"
#include "FileStatus_linux.h"
#include "FileText.h"
#include "JsonFields.h"
#include "OperatorStepOutcome.h"
#include "Utf16Text.h"

namespace quarl {
namespace json = boost::json;

namespace {

constexpr std::size_t textMax = OperatorStepOutcome::fileTextMax;
// Plain text never needs more bytes than four per unit of the longest answer.
constexpr std::int64_t plainReadMax = 4 * (textMax + 2);
constexpr std::int64_t documentReadMax = 256'000'000;
// What one XML part of a DOCX or ODT may inflate to: more is a zip bomb, not a letter.
constexpr zip_uint64_t xmlPartMax = 64'000'000;

DocumentText failure(std::string_view sentence) { return DocumentText{{}, false, {}, {}, std::string(sentence)}; }

// Up to `limit` bytes from the start of `fd`; none on a read error.
std::optional<std::string> readUpTo(int fd, std::int64_t limit) {
  std::string bytes;
  char buffer[65536];
  while (static_cast<std::int64_t>(bytes.size()) < limit) {
    const auto want = std::min<std::int64_t>(sizeof buffer, limit - static_cast<std::int64_t>(bytes.size()));
    const auto got = ::read(fd, buffer, static_cast<std::size_t>(want));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    bytes.append(buffer, static_cast<std::size_t>(got));
  }
  return bytes;
}

DocumentText cutToAnswer(std::string text, bool truncated) {
  DocumentText out;
  out.truncated = truncated || utf16Length(text) > textMax;
  out.text = out.truncated ? utf16Prefix(text, textMax) : std::move(text);
  return out;
}

void ignorePopplerMessage(const std::string&, void*) {}

DocumentText fromPdf(const std::string& bytes) {
  poppler::set_debug_error_function(ignorePopplerMessage, nullptr);
  std::unique_ptr<poppler::document> document(
      poppler::document::load_from_raw_data(bytes.data(), static_cast<int>(bytes.size())));
  if (!document || document->is_locked()) return failure(FileText::pdfUnopenable);
  const int pages = document->pages();
  std::string text;
  std::size_t units = 0;
  int read = 0;
  bool anyText = false;
  while (read < pages && units <= textMax) {
    std::unique_ptr<poppler::page> page(document->create_page(read++));
    if (!page) continue;
    const auto utf8 = page->text().to_utf8();
    // Poppler ends a page with a form feed; pages are told apart by an empty line instead.
    std::string pageText = repairedUtf8(std::string_view(utf8.data(), utf8.size()));
    pageText.erase(pageText.find_last_not_of(" \t\r\n\f") + 1);
    anyText = anyText || pageText.find_first_not_of(" \t\r\n\f") != std::string::npos;
    if (!text.empty()) text += "\n\n";
    text += pageText;
    units += utf16Length(pageText) + 2;
  }
  if (!anyText) return failure(FileText::pdfWithoutText);
  auto out = cutToAnswer(std::move(text), read < pages);
  out.pages = pages;
  out.pagesRead = read;
  return out;
}

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

DocumentText extractDocumentText(const std::string& path, FileIdentity identity) {
  const auto file = openFoundFile(path, identity);
  const auto status = file.fd() < 0 ? std::nullopt : plainFileOn(file.fd());
  if (!status) return failure(FileReadPolicy::movedSinceFound);
  const auto form = FileText::formOf(path);
  if (form == FileText::Form::other) return failure(FileText::documentUnreadable);
  if (form == FileText::Form::plain) {
    const auto bytes = readUpTo(file.fd(), plainReadMax);
    if (!bytes) return failure(FileText::fileUnreadable);
    return cutToAnswer(FileText::fromPlain(*bytes), status->bytes > plainReadMax);
  }
  if (status->bytes > documentReadMax) return failure(FileText::documentUnreadable);
  const auto bytes = readUpTo(file.fd(), documentReadMax);
  if (!bytes) return failure(FileText::fileUnreadable);
  switch (form) {
    case FileText::Form::html: return cutToAnswer(FileText::fromHtml(*bytes), false);
    case FileText::Form::pdf: return fromPdf(*bytes);
    case FileText::Form::word: {
      const auto xml = zipPart(*bytes, "word/document.xml");
      if (!xml) return failure(FileText::documentUnreadable);
      return cutToAnswer(FileText::fromWordXml(*xml), false);
    }
    case FileText::Form::openDocument: {
      const auto xml = zipPart(*bytes, "content.xml");
      if (!xml) return failure(FileText::documentUnreadable);
      return cutToAnswer(FileText::fromOpenDocumentXml(*xml), false);
    }
    default: return failure(FileText::documentUnreadable);
  }
}

std::string documentTextJson(const DocumentText& text) {
  json::object object;
  if (text.failure) {
    object["failure"] = *text.failure;
  } else {
    object["text"] = text.text;
    object["truncated"] = text.truncated;
    if (text.pages) object["pages"] = *text.pages;
    if (text.pagesRead) object["pagesRead"] = *text.pagesRead;
  }
  return json::serialize(object);
}

DocumentText documentTextFromJson(std::string_view text) {
  boost::system::error_code error;
  const auto parsed = json::parse(text, error);
  // A child that answered nothing readable failed to read, whatever the document was.
  if (error || !parsed.is_object()) return failure(FileText::fileUnreadable);
  if (auto sentence = textField(parsed, "failure")) return failure(*sentence);
  auto body = textField(parsed, "text");
  if (!body) return failure(FileText::fileUnreadable);
  DocumentText out;
  out.text = std::move(*body);
  const auto& object = parsed.as_object();
  if (const auto* truncated = object.if_contains("truncated"); truncated && truncated->is_bool()) {
    out.truncated = truncated->get_bool();
  }
  if (const auto* pages = object.if_contains("pages"); pages && pages->is_int64()) out.pages = pages->get_int64();
  if (const auto* read = object.if_contains("pagesRead"); read && read->is_int64()) out.pagesRead = read->get_int64();
  return out;
}

int extractTextCommand(int argc, char** argv) {
  if (argc != 6) {
    std::cerr << "usage: quarl-companion extract-text DEVICE INODE BORN PATH" << std::endl;
    return 2;
  }
  const rlimit cpu{30, 31};
  ::setrlimit(RLIMIT_CPU, &cpu);
#if !defined(__SANITIZE_ADDRESS__)
  // The sanitizers reserve far more address space than this; their builds go without the cap.
  const rlimit memory{2'000'000'000, 2'000'000'000};
  ::setrlimit(RLIMIT_AS, &memory);
#endif
  const FileIdentity identity{std::stoull(argv[2]), std::stoull(argv[3]), std::stoll(argv[4])};
  std::cout << documentTextJson(extractDocumentText(argv[5], identity)) << std::flush;
  return 0;
}

}  // namespace quarl

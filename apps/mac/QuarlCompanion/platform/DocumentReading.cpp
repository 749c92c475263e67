#include "platform/DocumentReading.h"

#include <sys/resource.h>
#include <unistd.h>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <iostream>

#include "ChildProcess.h"
#include "FileReadPolicy.h"
#include "FileText.h"
#include "JsonFields.h"
#include "OperatorStepOutcome.h"
#include "Utf16Text.h"
#include "platform/FileStatus.h"

namespace quarl {
namespace json = boost::json;

namespace {

constexpr std::size_t textMax = OperatorStepOutcome::fileTextMax;
// Plain text never needs more bytes than four per unit of the longest answer.
constexpr std::int64_t plainReadMax = 4 * (textMax + 2);
constexpr std::int64_t documentReadMax = 256'000'000;

DocumentText cutToAnswer(std::string text, bool truncated) {
  DocumentText out;
  out.truncated = truncated || utf16Length(text) > textMax;
  out.text = out.truncated ? utf16Prefix(text, textMax) : std::move(text);
  return out;
}

}  // namespace

bool PdfPages::wantsMore() const { return units_ <= textMax; }

void PdfPages::add(std::string page) {
  ++read_;
  page = repairedUtf8(page);
  // Readers end a page with a form feed or spaces; pages are told apart by an empty line instead.
  page.erase(page.find_last_not_of(" \t\r\n\f") + 1);
  anyText_ = anyText_ || !page.empty();
  if (!text_.empty()) text_ += "\n\n";
  units_ += utf16Length(page) + 2;
  text_ += page;
}

DocumentText PdfPages::text(std::int64_t pages) && {
  if (!anyText_) return DocumentText::failed(FileText::pdfWithoutText);
  return DocumentText{std::move(text_), read_ < pages, pages, read_, std::nullopt};
}

DocumentText extractDocumentText(const std::string& path, FileIdentity identity) {
  const auto file = openFoundFile(path, identity);
  const auto status = file.fd() < 0 ? std::nullopt : plainFileOn(file.fd());
  if (!status) return DocumentText::failed(FileReadPolicy::movedSinceFound);
  const auto form = FileText::formOf(path);
  if (form == FileText::Form::plain) {
    const auto bytes = readUpTo(file.fd(), plainReadMax);
    if (!bytes) return DocumentText::failed(FileText::fileUnreadable);
    return cutToAnswer(FileText::fromPlain(*bytes), status->bytes > plainReadMax);
  }
  if (form == FileText::Form::rich && !readsRichDocument(FileReadPolicy::extension(path))) {
    return DocumentText::failed(FileText::documentUnreadable);
  }
  if (status->bytes > documentReadMax) return DocumentText::failed(FileText::documentUnreadable);
  const auto bytes = readUpTo(file.fd(), documentReadMax);
  if (!bytes) return DocumentText::failed(FileText::fileUnreadable);
  if (form == FileText::Form::html) return cutToAnswer(FileText::fromHtml(*bytes), false);
  auto read = form == FileText::Form::pdf ? pdfDocumentText(*bytes)
                                          : richDocumentText(FileReadPolicy::extension(path), *bytes);
  if (read.failure) return read;
  auto out = cutToAnswer(std::move(read.text), read.truncated);
  out.pages = read.pages;
  out.pagesRead = read.pagesRead;
  return out;
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
  if (error || !parsed.is_object()) return DocumentText::failed(FileText::fileUnreadable);
  if (auto sentence = textField(parsed, "failure")) return DocumentText::failed(*sentence);
  auto body = textField(parsed, "text");
  if (!body) return DocumentText::failed(FileText::fileUnreadable);
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
  const rlimit memory{extractTextMemoryMax, extractTextMemoryMax};
  ::setrlimit(RLIMIT_AS, &memory);
#endif
  const FileIdentity identity{std::stoull(argv[2]), std::stoull(argv[3]), std::stoll(argv[4])};
  std::cout << documentTextJson(extractDocumentText(argv[5], identity)) << std::flush;
  return 0;
}

DocumentReader documentReaderInProcess() {
  return [](const FoundFile& file) { return extractDocumentText(file.path, file.identity); };
}

DocumentReader documentReaderInChild(std::string executable, std::chrono::milliseconds timeout) {
  return [executable = std::move(executable), timeout](const FoundFile& file) {
    const auto outcome = runChild(executable,
                                  {"extract-text", std::to_string(file.identity.device),
                                   std::to_string(file.identity.inode), std::to_string(file.identity.bornNs),
                                   file.path},
                                  "", timeout, std::chrono::milliseconds(500));
    if (!outcome.started || outcome.timedOut || outcome.exitCode != 0) {
      return DocumentText::failed(FileText::fileUnreadable);
    }
    return documentTextFromJson(outcome.output);
  };
}

}  // namespace quarl

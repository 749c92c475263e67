#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "FoundFile.h"
#include "platform/MacFileOperator.h"

namespace quarl {

// The text of the document at `path`, which must still be the plain file `identity` names: it
// is opened without following a link and checked before a byte is read. Plain text and HTML
// as FileText reads them, PDFs and rich documents through the platform's readers; the text is
// cut to what a step's answer carries. Reads at most a few hundred megabytes.
DocumentText extractDocumentText(const std::string& path, FileIdentity identity);

// A PDF's pages joined as a platform's reader takes them out, an empty line between two: the
// reader stops asking once there is more than an answer carries.
class PdfPages {
 public:
  bool wantsMore() const;
  // One page's text, in UTF-8, as the reader gave it.
  void add(std::string page);
  // The text of the pages added, of `pages` in all; "That PDF has no text Quarl can read on the
  // Mac (it may be a scan)." when none had any.
  DocumentText text(std::int64_t pages) &&;

 private:
  std::string text_;
  std::size_t units_ = 0;
  std::int64_t read_ = 0;
  bool anyText_ = false;
};

// The platform's readers, each fed the whole file. The text they give back may be longer than
// an answer carries; it is cut afterwards.
// A PDF's text, page by page, pages apart by an empty line; reading may stop once there is
// more than an answer carries, saying how many pages it read.
DocumentText pdfDocumentText(const std::string& bytes);
// Whether the platform has a reader for word processors' documents with `extension`: one it
// has none for is refused before a byte of it is read.
bool readsRichDocument(std::string_view extension);
// The text of a word processor's document (Word, OpenDocument, RTF and the like), chosen by
// its extension; "That document could not be read." for a kind the platform cannot read.
DocumentText richDocumentText(std::string_view extension, const std::string& bytes);

// The form in which a child process hands a reading back, and its reading.
std::string documentTextJson(const DocumentText& text);
DocumentText documentTextFromJson(std::string_view json);

// The memory the child that reads a document may take: it ends when a document needs more.
constexpr std::uint64_t extractTextMemoryMax = 2'000'000'000;

// `quarl-companion extract-text DEVICE INODE BORN PATH`: extracts in a process of its own, under
// limits of processor time and memory, and prints the reading as JSON. The parent ends it if
// it takes too long, so a hostile document cannot hang a step.
int extractTextCommand(int argc, char** argv);

using DocumentReader = std::function<DocumentText(const FoundFile&)>;
// Reads in this process: for tests and benchmarks.
DocumentReader documentReaderInProcess();
// Reads in a child, `executable extract-text …`, ended after `timeout`.
DocumentReader documentReaderInChild(std::string executable, std::chrono::milliseconds timeout);

}  // namespace quarl

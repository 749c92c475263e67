#pragma once

#include <string>
#include <string_view>

#include "FoundFile.h"
#include "platform/MacFileOperator.h"

namespace quarl {

// The text of the document at `path`, which must still be the plain file `identity` names: it
// is opened without following a link and checked before a byte is read. PDFs through
// poppler, DOCX and ODT through their XML, HTML and plain text as FileText reads them; the
// text is cut to what a step's answer carries. Reads at most a few hundred megabytes.
DocumentText extractDocumentText(const std::string& path, FileIdentity identity);

// The form in which a child process hands a reading back, and its reading.
std::string documentTextJson(const DocumentText& text);
DocumentText documentTextFromJson(std::string_view json);

// `quarl-companion extract-text DEVICE INODE BORN PATH`: extracts in a process of its own, under
// limits of processor time and memory, and prints the reading as JSON. The parent ends it if
// it takes too long, so a hostile document cannot hang a step.
int extractTextCommand(int argc, char** argv);

}  // namespace quarl

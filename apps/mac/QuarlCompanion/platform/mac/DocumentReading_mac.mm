#include "platform/DocumentReading.h"

#import <AppKit/AppKit.h>
#import <PDFKit/PDFKit.h>

#include "FileText.h"
#include "OperatorStepOutcome.h"
#include "Utf16Text.h"

namespace quarl {

namespace {

DocumentText failure(std::string_view sentence) { return DocumentText{{}, false, {}, {}, std::string(sentence)}; }

std::string utf8Of(NSString* text) { return text ? repairedUtf8(text.UTF8String) : std::string(); }

// The reader NSAttributedString uses for a word processor's document, by its extension.
NSString* documentTypeFor(std::string_view extension) {
  if (extension == "rtf") return NSRTFTextDocumentType;
  if (extension == "doc") return NSDocFormatTextDocumentType;
  if (extension == "docx") return NSOfficeOpenXMLTextDocumentType;
  if (extension == "odt") return NSOpenDocumentTextDocumentType;
  if (extension == "webarchive") return NSWebArchiveTextDocumentType;
  return nil;
}

}  // namespace

DocumentText pdfDocumentText(const std::string& bytes) {
  @autoreleasepool {
    NSData* data = [NSData dataWithBytesNoCopy:const_cast<char*>(bytes.data()) length:bytes.size() freeWhenDone:NO];
    PDFDocument* document = [[PDFDocument alloc] initWithData:data];
    if (!document || document.isLocked) return failure(FileText::pdfUnopenable);
    const auto pages = static_cast<std::int64_t>(document.pageCount);
    std::string text;
    std::size_t units = 0;
    std::int64_t read = 0;
    bool anyText = false;
    while (read < pages && units <= OperatorStepOutcome::fileTextMax) {
      auto pageText = utf8Of([document pageAtIndex:static_cast<NSUInteger>(read++)].string);
      pageText.erase(pageText.find_last_not_of(" \t\r\n\f") + 1);
      anyText = anyText || pageText.find_first_not_of(" \t\r\n\f") != std::string::npos;
      if (!text.empty()) text += "\n\n";
      text += pageText;
      units += utf16Length(pageText) + 2;
    }
    if (!anyText) return failure(FileText::pdfWithoutText);
    return DocumentText{std::move(text), read < pages, pages, read, std::nullopt};
  }
}

DocumentText richDocumentText(std::string_view extension, const std::string& bytes) {
  NSString* type = documentTypeFor(extension);
  if (!type) return failure(FileText::documentUnreadable);
  @autoreleasepool {
    NSData* data = [NSData dataWithBytesNoCopy:const_cast<char*>(bytes.data()) length:bytes.size() freeWhenDone:NO];
    NSDictionary* options = [NSDictionary dictionaryWithObject:type forKey:NSDocumentTypeDocumentOption];
    NSAttributedString* document = [[NSAttributedString alloc] initWithData:data
                                                                    options:options
                                                         documentAttributes:nullptr
                                                                      error:nullptr];
    if (!document) return failure(FileText::documentUnreadable);
    return DocumentText{utf8Of(document.string), false, {}, {}, std::nullopt};
  }
}

}  // namespace quarl

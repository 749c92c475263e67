#include "platform/DocumentReading.h"

#import <AppKit/AppKit.h>
#import <PDFKit/PDFKit.h>

#include "FileText.h"
#include "platform/mac/Text_mac.h"

namespace quarl {

namespace {

// The reader NSAttributedString uses for a word processor's document, by its extension.
NSString* documentTypeFor(std::string_view extension) {
  if (extension == "rtf") return NSRTFTextDocumentType;
  if (extension == "doc") return NSDocFormatTextDocumentType;
  if (extension == "docx") return NSOfficeOpenXMLTextDocumentType;
  if (extension == "odt") return NSOpenDocumentTextDocumentType;
  return nil;
}

// A web archive is a property list around the page's HTML: the HTML is read as any other,
// never handed to WebKit, which would run it and fetch what it names.
DocumentText webArchiveText(NSData* data) {
  id archive = [NSPropertyListSerialization propertyListWithData:data options:0 format:nullptr error:nullptr];
  if (![archive isKindOfClass:[NSDictionary class]]) return DocumentText::failed(FileText::documentUnreadable);
  id main = [archive objectForKey:@"WebMainResource"];
  id html = [main isKindOfClass:[NSDictionary class]] ? [main objectForKey:@"WebResourceData"] : nil;
  if (![html isKindOfClass:[NSData class]]) return DocumentText::failed(FileText::documentUnreadable);
  const std::string_view bytes(static_cast<const char*>([html bytes]), [html length]);
  return DocumentText::whole(FileText::fromHtml(bytes));
}

}  // namespace

DocumentText pdfDocumentText(const std::string& bytes) {
  @autoreleasepool {
    NSData* data = [NSData dataWithBytesNoCopy:const_cast<char*>(bytes.data()) length:bytes.size() freeWhenDone:NO];
    PDFDocument* document = [[PDFDocument alloc] initWithData:data];
    if (!document || document.isLocked) return DocumentText::failed(FileText::pdfUnopenable);
    const auto pages = static_cast<std::int64_t>(document.pageCount);
    PdfPages read;
    for (std::int64_t at = 0; at < pages && read.wantsMore(); ++at) {
      read.add(utf8([document pageAtIndex:static_cast<NSUInteger>(at)].string));
    }
    return std::move(read).text(pages);
  }
}

bool readsRichDocument(std::string_view extension) {
  return extension == "webarchive" || documentTypeFor(extension) != nil;
}

DocumentText richDocumentText(std::string_view extension, const std::string& bytes) {
  @autoreleasepool {
    NSData* data = [NSData dataWithBytesNoCopy:const_cast<char*>(bytes.data()) length:bytes.size() freeWhenDone:NO];
    if (extension == "webarchive") return webArchiveText(data);
    NSString* type = documentTypeFor(extension);
    if (!type) return DocumentText::failed(FileText::documentUnreadable);
    NSDictionary* options = [NSDictionary dictionaryWithObject:type forKey:NSDocumentTypeDocumentOption];
    NSAttributedString* document = [[NSAttributedString alloc] initWithData:data
                                                                    options:options
                                                         documentAttributes:nullptr
                                                                      error:nullptr];
    if (!document) return DocumentText::failed(FileText::documentUnreadable);
    return DocumentText::whole(utf8(document.string));
  }
}

}  // namespace quarl

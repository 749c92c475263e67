#include "PicturePasteboard_mac.h"

#import <AppKit/AppKit.h>
#import <ApplicationServices/ApplicationServices.h>

#include <unistd.h>

#include "MacKeyCodes.h"

namespace quarl {

bool MacPicturePasteboard::ownerIsInTheApp() { return [NSApp isActive]; }

// The picture goes on as an image the page's paste handler reads, in the form AppKit gives any
// picture it can open (TIFF, with PNG beside it), whatever form the file came in.
std::optional<std::string> MacPicturePasteboard::stagePicture(const WhatsAppWeb::OutgoingFile& file) {
  @autoreleasepool {
    NSData* bytes = [NSData dataWithBytes:file.bytes.data() length:file.bytes.size()];
    NSImage* picture = [[NSImage alloc] initWithData:bytes];
    if (!picture) return "the file's bytes are not a picture this Mac can open";
    NSPasteboard* pasteboard = [NSPasteboard generalPasteboard];
    [pasteboard clearContents];
    if (![pasteboard writeObjects:[NSArray arrayWithObject:picture]]) return "the pasteboard did not take the picture";
    return std::nullopt;
  }
}

void MacPicturePasteboard::pasteWithCommandV() {
  page_->takeKeys();
  const auto v = MacKeyCodes::code("v");
  for (const bool down : {true, false}) {
    CGEventRef key = CGEventCreateKeyboardEvent(nullptr, static_cast<CGKeyCode>(*v), down);
    if (!key) return;
    CGEventSetFlags(key, static_cast<CGEventFlags>(MacKeyCodes::commandFlag));
    CGEventPostToPid(::getpid(), key);
    CFRelease(key);
  }
}

}  // namespace quarl

// ImageIO as the Mac layer uses it: a JPEG written into memory. Declarations for the
// Objective-C++ check only.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CoreGraphics.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct CGImageDestination* CGImageDestinationRef;

extern const CFStringRef kCGImageDestinationLossyCompressionQuality;

CGImageDestinationRef CGImageDestinationCreateWithData(CFMutableDataRef data, CFStringRef type, size_t count,
                                                       CFDictionaryRef options);
void CGImageDestinationAddImage(CGImageDestinationRef idst, CGImageRef image, CFDictionaryRef properties);
bool CGImageDestinationFinalize(CGImageDestinationRef idst);

#ifdef __cplusplus
}
#endif

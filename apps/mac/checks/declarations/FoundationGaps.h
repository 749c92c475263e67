// What Apple's Foundation declares and GNUstep's does not, for the Objective-C++ check only.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

// The check compiles without ARC (GCC's runtime has none), where ownership needs no cast.
#ifdef __OBJC__
// Foundation (NSObject.h): moves a Core Foundation object's ownership into an object.
inline id CFBridgingRelease(CFTypeRef value) { return (id)value; }
// Foundation (NSObject.h): moves an object's ownership out to Core Foundation.
inline CFTypeRef CFBridgingRetain(id value) { return (CFTypeRef)value; }
#endif

#ifdef __OBJC__
#import <Foundation/NSProcessInfo.h>
// Foundation (NSProcessInfo.h, macOS 10.10): the running system's version.
typedef struct {
  NSInteger majorVersion;
  NSInteger minorVersion;
  NSInteger patchVersion;
} NSOperatingSystemVersion;

@interface NSProcessInfo (QuarlCheckGaps)
- (BOOL)isOperatingSystemAtLeastVersion:(NSOperatingSystemVersion)version;
@property(readonly) NSOperatingSystemVersion operatingSystemVersion;
@end
#endif

#ifdef __OBJC__
#import <Foundation/NSMetadata.h>
#import <Foundation/NSOperation.h>
// Foundation (NSMetadata.h, macOS 10.9): the queue a query starts on and posts its
// notifications to.
@interface NSMetadataQuery (QuarlCheckGaps)
@property(retain) NSOperationQueue* operationQueue;
@end
#endif

#ifdef __OBJC__
#import <Foundation/NSJSONSerialization.h>
// Foundation (NSJSONSerialization.h, macOS 10.15): a value that is not an array or an object
// may be written.
static const NSJSONWritingOptions NSJSONWritingFragmentsAllowed = 1UL << 2;
#endif

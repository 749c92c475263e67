// File System Events (CoreServices), as the Mac layer uses it: declarations for the
// Objective-C++ check only.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct __FSEventStream* FSEventStreamRef;
typedef const struct __FSEventStream* ConstFSEventStreamRef;
typedef uint32_t FSEventStreamCreateFlags;
typedef uint32_t FSEventStreamEventFlags;
typedef uint64_t FSEventStreamEventId;

typedef struct {
  CFIndex version;
  void* info;
  const void* (*retain)(const void* info);
  void (*release)(const void* info);
  CFStringRef (*copyDescription)(const void* info);
} FSEventStreamContext;

typedef void (*FSEventStreamCallback)(ConstFSEventStreamRef streamRef, void* clientCallBackInfo, size_t numEvents,
                                      void* eventPaths, const FSEventStreamEventFlags eventFlags[],
                                      const FSEventStreamEventId eventIds[]);

enum : FSEventStreamCreateFlags { kFSEventStreamCreateFlagNoDefer = 0x02, kFSEventStreamCreateFlagFileEvents = 0x10 };
enum : FSEventStreamEventId { kFSEventStreamEventIdSinceNow = 0xFFFFFFFFFFFFFFFFULL };

FSEventStreamRef FSEventStreamCreate(CFAllocatorRef allocator, FSEventStreamCallback callback,
                                     FSEventStreamContext* context, CFArrayRef pathsToWatch,
                                     FSEventStreamEventId sinceWhen, CFTimeInterval latency,
                                     FSEventStreamCreateFlags flags);
void FSEventStreamSetDispatchQueue(FSEventStreamRef streamRef, dispatch_queue_t queue);
Boolean FSEventStreamStart(FSEventStreamRef streamRef);
void FSEventStreamStop(FSEventStreamRef streamRef);
void FSEventStreamInvalidate(FSEventStreamRef streamRef);
void FSEventStreamRelease(FSEventStreamRef streamRef);

#ifdef __cplusplus
}
#endif

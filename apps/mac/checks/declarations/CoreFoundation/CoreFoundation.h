// Core Foundation, as the Mac layer uses it: declarations for the Objective-C++ check only.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const void* CFTypeRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef const struct __CFData* CFDataRef;
typedef struct __CFData* CFMutableDataRef;
typedef const struct __CFArray* CFArrayRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef double CFTimeInterval;
typedef unsigned long CFTypeID;
typedef const struct __CFBoolean* CFBooleanRef;
typedef uint16_t UniChar;
typedef unsigned long UniCharCount;
typedef signed long CFIndex;
typedef uint32_t CFStringEncoding;
typedef unsigned char Boolean;
typedef int32_t OSStatus;

void CFRelease(CFTypeRef cf);
CFTypeRef CFRetain(CFTypeRef cf);
CFTypeID CFGetTypeID(CFTypeRef cf);

extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;
CFTypeID CFBooleanGetTypeID(void);
Boolean CFBooleanGetValue(CFBooleanRef boolean);

CFIndex CFArrayGetCount(CFArrayRef theArray);
const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx);

#ifdef __cplusplus
}
#endif

// System Configuration as the Mac layer uses it: the computer's name as set in Sharing.
// Declarations for the Objective-C++ check only.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const struct __SCDynamicStore* SCDynamicStoreRef;

// The computer's name; the caller owns the string. `store` may be NULL, and so may `nameEncoding`.
CFStringRef SCDynamicStoreCopyComputerName(SCDynamicStoreRef store, CFStringEncoding* nameEncoding);

#ifdef __cplusplus
}
#endif

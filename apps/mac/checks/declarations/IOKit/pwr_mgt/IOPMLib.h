// IOKit's power management (IOKit/pwr_mgt/IOPMLib.h), as the Mac layer uses it: declarations
// for the Objective-C++ check only.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t IOPMAssertionID;
typedef uint32_t IOPMAssertionLevel;
typedef int IOReturn;
typedef enum { kIOPMUserActiveLocal, kIOPMUserActiveRemote } IOPMUserActiveType;

enum : IOReturn { kIOReturnSuccess = 0 };
enum : IOPMAssertionLevel { kIOPMAssertionLevelOff = 0, kIOPMAssertionLevelOn = 255 };
// A CFSTR constant on a Mac.
extern const CFStringRef kIOPMAssertionTypePreventUserIdleSystemSleep;

IOReturn IOPMAssertionCreateWithName(CFStringRef assertionType, IOPMAssertionLevel assertionLevel,
                                     CFStringRef assertionName, IOPMAssertionID* assertionID);
IOReturn IOPMAssertionRelease(IOPMAssertionID assertionID);
IOReturn IOPMAssertionDeclareUserActivity(CFStringRef assertionName, IOPMUserActiveType userType,
                                          IOPMAssertionID* assertionID);

#ifdef __cplusplus
}
#endif

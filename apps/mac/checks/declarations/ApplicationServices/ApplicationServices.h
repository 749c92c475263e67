// ApplicationServices as the Mac layer uses it: the Accessibility API (HIServices) and Quartz
// events (CoreGraphics). Declarations for the Objective-C++ check only. On a Mac the attribute
// and action names are CFSTR macros; constants of the same type stand in for them here.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <stdbool.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const struct __AXUIElement* AXUIElementRef;
typedef int32_t AXError;
enum : AXError { kAXErrorSuccess = 0, kAXErrorCannotComplete = -25204 };

extern const CFStringRef kAXChildrenAttribute;
extern const CFStringRef kAXWindowsAttribute;
extern const CFStringRef kAXFocusedAttribute;
extern const CFStringRef kAXPressAction;

CFTypeID AXUIElementGetTypeID(void);
Boolean AXIsProcessTrusted(void);
AXUIElementRef AXUIElementCreateApplication(pid_t pid);
AXError AXUIElementSetMessagingTimeout(AXUIElementRef element, float timeoutInSeconds);
AXError AXUIElementCopyAttributeValue(AXUIElementRef element, CFStringRef attribute, CFTypeRef* value);
AXError AXUIElementCopyAttributeValues(AXUIElementRef element, CFStringRef attribute, CFIndex index, CFIndex maxValues,
                                       CFArrayRef* values);
typedef uint32_t AXCopyMultipleAttributeOptions;
AXError AXUIElementCopyMultipleAttributeValues(AXUIElementRef element, CFArrayRef attributes,
                                               AXCopyMultipleAttributeOptions options, CFArrayRef* values);
AXError AXUIElementSetAttributeValue(AXUIElementRef element, CFStringRef attribute, CFTypeRef value);
AXError AXUIElementPerformAction(AXUIElementRef element, CFStringRef action);

typedef struct __CGEvent* CGEventRef;
typedef struct __CGEventSource* CGEventSourceRef;
typedef uint64_t CGEventFlags;
typedef uint16_t CGKeyCode;
typedef uint32_t CGScrollEventUnit;
enum : CGScrollEventUnit { kCGScrollEventUnitPixel = 0, kCGScrollEventUnitLine = 1 };

CGEventRef CGEventCreateKeyboardEvent(CGEventSourceRef source, CGKeyCode virtualKey, bool keyDown);
CGEventRef CGEventCreateScrollWheelEvent(CGEventSourceRef source, CGScrollEventUnit units, uint32_t wheelCount,
                                         int32_t wheel1, ...);
void CGEventKeyboardSetUnicodeString(CGEventRef event, UniCharCount stringLength, const UniChar* unicodeString);
void CGEventSetFlags(CGEventRef event, CGEventFlags flags);
void CGEventPostToPid(pid_t pid, CGEventRef event);

typedef uint32_t CGDirectDisplayID;
CGDirectDisplayID CGMainDisplayID(void);
Boolean CGDisplayIsAsleep(CGDirectDisplayID display);
bool CGPreflightScreenCaptureAccess(void);
bool CGPreflightPostEventAccess(void);
CFDictionaryRef CGSessionCopyCurrentDictionary(void);

#ifdef __cplusplus
}
#endif

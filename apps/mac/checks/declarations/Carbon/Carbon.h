// Carbon's event manager hot keys (Carbon/Carbon.h), as the Mac layer uses them: declarations
// for the Objective-C++ check only.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t UInt32;
typedef UInt32 FourCharCode;
typedef FourCharCode OSType;
typedef UInt32 OptionBits;
typedef unsigned long ItemCount;
typedef UInt32 EventParamName;
typedef OSType EventParamType;
typedef unsigned long ByteCount;

typedef struct OpaqueEventHotKeyRef* EventHotKeyRef;
typedef struct OpaqueEventTargetRef* EventTargetRef;
typedef struct OpaqueEventHandlerRef* EventHandlerRef;
typedef struct OpaqueEventHandlerCallRef* EventHandlerCallRef;
typedef struct OpaqueEventRef* EventRef;
typedef OSStatus (*EventHandlerProcPtr)(EventHandlerCallRef inHandlerCallRef, EventRef inEvent, void* inUserData);
typedef EventHandlerProcPtr EventHandlerUPP;

typedef struct {
  OSType signature;
  UInt32 id;
} EventHotKeyID;

typedef struct {
  OSType eventClass;
  UInt32 eventKind;
} EventTypeSpec;

enum : OSStatus { noErr = 0, eventNotHandledErr = -9874 };
enum : OSType { kEventClassKeyboard = 0x6B657962 /* 'keyb' */, typeEventHotKeyID = 0x686B6964 /* 'hkid' */ };
enum : UInt32 { kEventHotKeyPressed = 5 };
enum : EventParamName { kEventParamDirectObject = 0x2D2D2D2D /* '----' */ };

EventTargetRef GetApplicationEventTarget(void);
EventHandlerUPP NewEventHandlerUPP(EventHandlerProcPtr userRoutine);
OSStatus InstallEventHandler(EventTargetRef inTarget, EventHandlerUPP inHandler, ItemCount inNumTypes,
                             const EventTypeSpec* inList, void* inUserData, EventHandlerRef* outRef);
OSStatus RemoveEventHandler(EventHandlerRef inHandlerRef);
OSStatus GetEventParameter(EventRef inEvent, EventParamName inName, EventParamType inDesiredType,
                           EventParamType* outActualType, ByteCount inBufferSize, ByteCount* outActualSize,
                           void* outData);
OSStatus RegisterEventHotKey(UInt32 inHotKeyCode, UInt32 inHotKeyModifiers, EventHotKeyID inHotKeyID,
                             EventTargetRef inTarget, OptionBits inOptions, EventHotKeyRef* outRef);
OSStatus UnregisterEventHotKey(EventHotKeyRef inHotKey);

#ifdef __cplusplus
}
#endif

#include "EventActor_mac.h"

#include <future>

#import <AppKit/AppKit.h>
#include <ApplicationServices/ApplicationServices.h>

#include "ActPolicy.h"
#include "MacKeyCodes.h"
#include "platform/mac/Text_mac.h"

namespace quarl {

namespace {

constexpr std::string_view notTypedSentence = "The text could not be typed.";

// The folders an app is looked up in, as the owner's Finder shows them.
NSArray* applicationFolders() {
  return [NSArray arrayWithObjects:@"/Applications", @"/System/Applications", @"/System/Applications/Utilities",
                                   @"/Applications/Utilities", nil];
}

// The name the Finder shows for a bundle: its display name, else its name, else its file's.
NSString* displayName(NSURL* url) {
  NSBundle* bundle = [NSBundle bundleWithURL:url];
  NSString* name = [[bundle localizedInfoDictionary] objectForKey:@"CFBundleDisplayName"];
  if (!name) name = [[bundle infoDictionary] objectForKey:@"CFBundleDisplayName"];
  if (!name) name = [[bundle infoDictionary] objectForKey:@"CFBundleName"];
  return name ? name : [[url lastPathComponent] stringByDeletingPathExtension];
}

NSURL* findApp(NSString* name) {
  NSFileManager* files = [NSFileManager defaultManager];
  for (NSString* folder in applicationFolders()) {
    NSArray* entries = [files contentsOfDirectoryAtURL:[NSURL fileURLWithPath:folder]
                            includingPropertiesForKeys:nil
                                               options:NSDirectoryEnumerationSkipsHiddenFiles
                                                 error:nullptr];
    for (NSURL* entry in entries) {
      if (![[entry pathExtension] isEqualToString:@"app"]) continue;
      if ([displayName(entry) caseInsensitiveCompare:name] == NSOrderedSame) return entry;
    }
  }
  return nil;
}

bool post(pid_t process, CGEventRef event) {
  if (!event) return false;
  CGEventPostToPid(process, event);
  CFRelease(event);
  return true;
}

}  // namespace

std::optional<std::string> MacEventActor::press(const AXElement& element, std::string_view app) {
  if (AXUIElementPerformAction(static_cast<AXUIElementRef>(element.get()), kAXPressAction) != kAXErrorSuccess) {
    return ActPolicy::wouldNotPressSentence(app);
  }
  return std::nullopt;
}

std::optional<std::string> MacEventActor::type(const AXElement& element, std::string_view text, const RunningApp& app) {
  if (!app.processId) return ActPolicy::noFocusSentence(app.name);
  if (element) AXUIElementSetAttributeValue(static_cast<AXUIElementRef>(element.get()), kAXFocusedAttribute, kCFBooleanTrue);
  @autoreleasepool {
    NSString* typed = nsString(text);
    if (!typed) return std::string(notTypedSentence);
    const auto process = static_cast<pid_t>(*app.processId);
    for (NSUInteger start = 0; start < [typed length]; start += unitsPerEvent) {
      const NSUInteger length = std::min<NSUInteger>(unitsPerEvent, [typed length] - start);
      std::vector<UniChar> units(length);
      [typed getCharacters:units.data() range:NSMakeRange(start, length)];
      for (const bool down : {true, false}) {
        CGEventRef event = CGEventCreateKeyboardEvent(nullptr, 0, down);
        if (!event) return std::string(notTypedSentence);
        CGEventKeyboardSetUnicodeString(event, static_cast<UniCharCount>(length), units.data());
        post(process, event);
      }
    }
  }
  return std::nullopt;
}

std::optional<std::string> MacEventActor::key(const RunningApp& app, std::string_view key,
                                              const std::vector<std::string>& modifiers) {
  const auto code = MacKeyCodes::code(key);
  if (!code) return std::string(ActPolicy::unknownKeySentence);
  if (!app.processId) return ActPolicy::notInFrontSentence(app.name);
  const auto flags = static_cast<CGEventFlags>(MacKeyCodes::flags(modifiers));
  for (const bool down : {true, false}) {
    CGEventRef event = CGEventCreateKeyboardEvent(nullptr, static_cast<CGKeyCode>(*code), down);
    if (!event) return std::string(ActPolicy::unknownKeySentence);
    CGEventSetFlags(event, flags);
    post(static_cast<pid_t>(*app.processId), event);
  }
  return std::nullopt;
}

std::optional<std::string> MacEventActor::scroll(const RunningApp& app, std::string_view direction, std::int64_t amount) {
  if (!app.processId || !source_->frontWindow(*app.processId)) return ActPolicy::noWindowToScrollSentence(app.name);
  const auto lines = static_cast<int32_t>(amount);
  int32_t vertical = 0;
  int32_t horizontal = 0;
  if (direction == "up") vertical = lines;
  if (direction == "down") vertical = -lines;
  if (direction == "left") horizontal = lines;
  if (direction == "right") horizontal = -lines;
  CGEventRef event = CGEventCreateScrollWheelEvent(nullptr, kCGScrollEventUnitLine, 2, vertical, horizontal);
  if (!post(static_cast<pid_t>(*app.processId), event)) return std::string(ActPolicy::scrollFailedSentence);
  return std::nullopt;
}

std::optional<std::string> MacEventActor::openApp(std::string_view name) {
  @autoreleasepool {
    NSURL* url = findApp(nsString(name));
    if (!url) return ActPolicy::notOnThisMacSentence(name);
    // Called off the main thread: the workspace answers on a queue of its own, which is waited for.
    auto opened = std::make_shared<std::promise<bool>>();
    NSWorkspaceOpenConfiguration* configuration = [NSWorkspaceOpenConfiguration configuration];
    configuration.activates = YES;
    [[NSWorkspace sharedWorkspace] openApplicationAtURL:url
                                          configuration:configuration
                                      completionHandler:^(NSRunningApplication* app, NSError* error) {
                                        opened->set_value(app != nil && error == nil);
                                      }];
    if (!opened->get_future().get()) return ActPolicy::couldNotOpenSentence(name);
    return std::nullopt;
  }
}

}  // namespace quarl

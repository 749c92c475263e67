#include "AXSource_mac.h"

#import <AppKit/AppKit.h>
#include <ApplicationServices/ApplicationServices.h>

#include "platform/mac/Text_mac.h"

namespace quarl {

namespace {

AXUIElementRef raw(const AXElement& element) { return static_cast<AXUIElementRef>(element.get()); }

// Takes ownership of a copied element: the shared pointer releases it.
AXElement owned(AXUIElementRef element) {
  return AXElement(const_cast<void*>(static_cast<const void*>(element)), [](void* held) { CFRelease(held); });
}

// The attribute's value, owned by the caller; none when the app did not answer in time.
CFTypeRef copied(std::string_view attribute, const AXElement& of) {
  CFTypeRef value = nullptr;
  if (AXUIElementCopyAttributeValue(raw(of), (__bridge CFStringRef)nsString(attribute), &value) != kAXErrorSuccess) {
    return nullptr;
  }
  return value;
}

// An attribute's value as text: a string as it is, and a slider's or a stepper's number as
// the text it shows.
std::optional<std::string> textOf(id value) {
  if ([value isKindOfClass:[NSString class]]) return utf8((NSString*)value);
  if ([value isKindOfClass:[NSNumber class]]) return utf8([(NSNumber*)value stringValue]);
  return std::nullopt;
}

std::optional<bool> booleanOf(CFTypeRef value) {
  if (!value || CFGetTypeID(value) != CFBooleanGetTypeID()) return std::nullopt;
  return CFBooleanGetValue(static_cast<CFBooleanRef>(value));
}

}  // namespace

AXElement MacAXSource::application(std::int64_t processId) {
  AXUIElementRef app = AXUIElementCreateApplication(static_cast<pid_t>(processId));
  AXUIElementSetMessagingTimeout(app, messagingTimeoutSeconds);
  return owned(app);
}

std::optional<AXElement> MacAXSource::element(std::string_view attribute, const AXElement& of) {
  CFTypeRef value = copied(attribute, of);
  if (!value) return std::nullopt;
  if (CFGetTypeID(value) != AXUIElementGetTypeID()) {
    CFRelease(value);
    return std::nullopt;
  }
  return owned(static_cast<AXUIElementRef>(value));
}

std::optional<std::string> MacAXSource::string(std::string_view attribute, const AXElement& of) {
  @autoreleasepool {
    CFTypeRef value = copied(attribute, of);
    if (!value) return std::nullopt;
    return textOf(CFBridgingRelease(value));
  }
}

std::optional<bool> MacAXSource::boolean(std::string_view attribute, const AXElement& of) {
  CFTypeRef value = copied(attribute, of);
  if (!value) return std::nullopt;
  const auto answer = booleanOf(value);
  CFRelease(value);
  return answer;
}

// All six in one round trip to the app rather than six. An attribute the element lacks comes
// back as an error value in its place, which reads as none.
AXNode MacAXSource::attributes(const AXElement& of) {
  AXNode node;
  node.role = "AXUnknown";
  @autoreleasepool {
    NSArray* names = [NSArray
        arrayWithObjects:@"AXRole", @"AXSubrole", @"AXTitle", @"AXDescription", @"AXValue", @"AXEnabled", nil];
    CFArrayRef values = nullptr;
    if (AXUIElementCopyMultipleAttributeValues(raw(of), (__bridge CFArrayRef)names, 0, &values) != kAXErrorSuccess ||
        !values) {
      return node;
    }
    NSArray* answers = CFBridgingRelease(values);
    if (answers.count != names.count) return node;
    node.role = textOf([answers objectAtIndex:0]).value_or("AXUnknown");
    node.subrole = textOf([answers objectAtIndex:1]);
    node.title = textOf([answers objectAtIndex:2]);
    node.label = textOf([answers objectAtIndex:3]);
    node.value = textOf([answers objectAtIndex:4]);
    node.enabled = booleanOf((__bridge CFTypeRef)[answers objectAtIndex:5]);
  }
  return node;
}

std::vector<AXElement> MacAXSource::children(const AXElement& of, std::size_t atMost) {
  std::vector<AXElement> found;
  CFArrayRef values = nullptr;
  // Only the first `atMost` are asked for: a list of thousands costs what the walk will visit.
  if (AXUIElementCopyAttributeValues(raw(of), kAXChildrenAttribute, 0, static_cast<CFIndex>(atMost), &values) !=
          kAXErrorSuccess ||
      !values) {
    return found;
  }
  for (CFIndex index = 0; index < CFArrayGetCount(values); ++index) {
    const auto* child = CFArrayGetValueAtIndex(values, index);
    if (CFGetTypeID(child) != AXUIElementGetTypeID()) continue;
    found.push_back(owned(static_cast<AXUIElementRef>(CFRetain(child))));
  }
  CFRelease(values);
  return found;
}

std::vector<RunningApp> MacAXSource::runningApps() {
  std::vector<RunningApp> apps;
  @autoreleasepool {
    for (NSRunningApplication* running in [[NSWorkspace sharedWorkspace] runningApplications]) {
      if ([running activationPolicy] != NSApplicationActivationPolicyRegular) continue;
      RunningApp app;
      app.name = utf8([running localizedName]);
      if ([running bundleIdentifier]) app.bundleId = utf8([running bundleIdentifier]);
      app.frontmost = [running isActive] == YES;
      app.hidden = [running isHidden] == YES;
      app.processId = [running processIdentifier];
      const auto element = application(*app.processId);
      CFArrayRef windows = nullptr;
      if (AXUIElementCopyAttributeValues(raw(element), kAXWindowsAttribute, 0, 50, &windows) == kAXErrorSuccess &&
          windows) {
        for (CFIndex index = 0; index < CFArrayGetCount(windows); ++index) {
          const auto* window = CFArrayGetValueAtIndex(windows, index);
          if (CFGetTypeID(window) != AXUIElementGetTypeID()) continue;
          const auto kept = owned(static_cast<AXUIElementRef>(CFRetain(window)));
          if (auto title = string("AXTitle", kept)) app.windows.push_back(std::move(*title));
        }
        CFRelease(windows);
      }
      if (!app.name.empty()) apps.push_back(std::move(app));
    }
  }
  return apps;
}

std::optional<AXElement> MacAXSource::frontWindow(std::int64_t processId) {
  const auto app = application(processId);
  if (auto focused = element("AXFocusedWindow", app)) return focused;
  return element("AXMainWindow", app);
}

std::optional<AXElement> MacAXSource::focusedElement(std::int64_t processId) {
  return element("AXFocusedUIElement", application(processId));
}

}  // namespace quarl

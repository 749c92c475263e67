#include "CompanionHost_mac.h"

#import <AppKit/AppKit.h>
#include <ApplicationServices/ApplicationServices.h>
#import <Contacts/Contacts.h>
#include <sys/sysctl.h>

#include "ChatDatabase.h"
#include "Workers.h"
#include "platform/mac/Text_mac.h"

namespace quarl {

namespace {

CapabilityState stateOf(bool granted) { return granted ? CapabilityState::granted : CapabilityState::off; }

// Whether the console session is this one and its screen is not locked.
CapabilityState unlockedAtScreen() {
  CFDictionaryRef session = CGSessionCopyCurrentDictionary();
  if (!session) return CapabilityState::unknown;
  NSDictionary* facts = CFBridgingRelease(session);
  const bool onConsole = [[facts objectForKey:@"kCGSSessionOnConsoleKey"] boolValue] == YES;
  const bool locked = [[facts objectForKey:@"CGSSessionScreenIsLocked"] boolValue] == YES;
  return stateOf(onConsole && !locked);
}

}  // namespace

boost::asio::awaitable<MessagesStoreReading> MacCompanionHost::readMessagesStore(std::string path) {
  MessagesStoreReading reading;
  co_await runOnWorker([&reading, &path] { reading = readMessagesStoreNow(ChatDatabase{path}); });
  co_return reading;
}

std::optional<std::string> MacCompanionHost::contactName(const std::string& handle) {
  @autoreleasepool {
    if ([CNContactStore authorizationStatusForEntityType:CNEntityTypeContacts] != CNAuthorizationStatusAuthorized) {
      return std::nullopt;
    }
    NSPredicate* matching =
        handle.find('@') != std::string::npos
            ? [CNContact predicateForContactsMatchingEmailAddress:nsString(handle)]
            : [CNContact predicateForContactsMatchingPhoneNumber:[CNPhoneNumber phoneNumberWithStringValue:nsString(handle)]];
    NSArray* keys = [NSArray arrayWithObject:[CNContactFormatter descriptorForRequiredKeysForStyle:CNContactFormatterStyleFullName]];
    NSArray* found = [[[CNContactStore alloc] init] unifiedContactsMatchingPredicate:matching keysToFetch:keys error:nullptr];
    if ([found count] == 0) return std::nullopt;
    NSString* name = [CNContactFormatter stringFromContact:[found objectAtIndex:0] style:CNContactFormatterStyleFullName];
    if ([name length] == 0) return std::nullopt;
    return utf8(name);
  }
}

void MacCompanionHost::showPairingCode(const std::string&, const std::string& verificationUrl) {
  @autoreleasepool {
    NSURL* page = [NSURL URLWithString:nsString(verificationUrl)];
    if (page) [[NSWorkspace sharedWorkspace] openURL:page];
  }
}

void MacCompanionHost::setBadge(const std::optional<std::string>& label) {
  @autoreleasepool {
    [[NSApp dockTile] setBadgeLabel:label ? nsString(*label) : nil];
  }
}

std::string MacCompanionHost::hardwareDescription() {
  char model[128] = {};
  size_t size = sizeof(model) - 1;
  if (sysctlbyname("hw.model", model, &size, nullptr, 0) != 0 || size == 0) return "Mac";
  return std::string(model);
}

OperatorCaps MacCompanionHost::operatorCaps() {
  OperatorCaps caps;
  @autoreleasepool {
    caps.accessibility = stateOf(AXIsProcessTrusted());
    caps.screenRecording = stateOf(CGPreflightScreenCaptureAccess());
    caps.postEvents = stateOf(CGPreflightPostEventAccess());
    // The Messages store sits behind Full Disk Access: being able to open it is the grant.
    NSString* store = [NSHomeDirectory() stringByAppendingPathComponent:@"Library/Messages/chat.db"];
    caps.fullDiskAccess = stateOf([[NSFileManager defaultManager] isReadableFileAtPath:store] == YES);
    caps.unlockedAtScreen = unlockedAtScreen();
    NSOperatingSystemVersion screenCaptureKit{14, 0, 0};  // SCScreenshotManager
    caps.osTooOld = [[NSProcessInfo processInfo] isOperatingSystemAtLeastVersion:screenCaptureKit] != YES;
    caps.displayCount = static_cast<int>([[NSScreen screens] count]);
    caps.displaysAsleep = CGDisplayIsAsleep(CGMainDisplayID()) != 0;
  }
  return caps;
}

void MacCompanionHost::openPrivacyPane(const std::string& anchor) {
  @autoreleasepool {
    NSString* address = [@"x-apple.systempreferences:com.apple.preference.security?" stringByAppendingString:nsString(anchor)];
    [[NSWorkspace sharedWorkspace] openURL:[NSURL URLWithString:address]];
  }
}

}  // namespace quarl

#include "platform/HostIdentity.h"

#import <Foundation/Foundation.h>

#include "platform/mac/Text_mac.h"
#import <SystemConfiguration/SystemConfiguration.h>

#include <cstdlib>

namespace quarl {

namespace {

std::string bundleString(NSString* key, const char* otherwise) {
  id value = [[NSBundle mainBundle] objectForInfoDictionaryKey:key];
  return [value isKindOfClass:[NSString class]] ? utf8(value) : otherwise;
}

}  // namespace

// The version and build are the bundle's own, so that what the service sees is what the owner
// installed. The name is the one set in Sharing, read from the configuration store: NSHost
// would ask the network for it, and could hold up the launch.
ClientIdentity hostIdentity() {
  @autoreleasepool {
    const NSOperatingSystemVersion system = [[NSProcessInfo processInfo] operatingSystemVersion];
    NSString* name = CFBridgingRelease(SCDynamicStoreCopyComputerName(nullptr, nullptr));
    return ClientIdentity{"macos", std::strtoll(bundleString(@"CFBundleVersion", "0").c_str(), nullptr, 10),
                          bundleString(@"CFBundleShortVersionString", "0"), name ? utf8(name) : "Mac",
                          "macOS " + std::to_string(system.majorVersion) + "." + std::to_string(system.minorVersion) +
                              "." + std::to_string(system.patchVersion)};
  }
}

}  // namespace quarl

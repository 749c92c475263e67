#include "KeepAwake_mac.h"

#import <Foundation/Foundation.h>
#include <IOKit/pwr_mgt/IOPMLib.h>

namespace quarl {

namespace {

NSString* const reason = @"Quarl is operating this Mac for you";

}  // namespace

MacKeepAwake::~MacKeepAwake() {
  release();
  if (activity_ != 0) IOPMAssertionRelease(activity_);
}

std::optional<std::string> MacKeepAwake::hold() {
  if (held_ != 0) return std::nullopt;
  IOPMAssertionID id = 0;
  const IOReturn made = IOPMAssertionCreateWithName(kIOPMAssertionTypePreventUserIdleSystemSleep, kIOPMAssertionLevelOn,
                                                    (__bridge CFStringRef)reason, &id);
  if (made != kIOReturnSuccess) return "macOS did not let Quarl keep this Mac awake (IOKit error " + std::to_string(made) + ").";
  held_ = id;
  return std::nullopt;
}

void MacKeepAwake::release() {
  if (held_ == 0) return;
  IOPMAssertionRelease(held_);
  held_ = 0;
}

bool MacKeepAwake::declareUserActivity() {
  // The same id is passed back each time, so that the system renews one assertion, not many.
  IOPMAssertionID id = activity_;
  const bool told = IOPMAssertionDeclareUserActivity((__bridge CFStringRef)reason, kIOPMUserActiveLocal, &id) ==
                    kIOReturnSuccess;
  if (told) activity_ = id;
  return told;
}

}  // namespace quarl

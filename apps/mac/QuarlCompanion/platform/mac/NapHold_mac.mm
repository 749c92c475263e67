#include "NapHold_mac.h"

#import <Foundation/Foundation.h>

namespace quarl {

MacNapHold::~MacNapHold() { hold(false); }

void MacNapHold::hold(bool on) {
  if (on == (activity_ != nullptr)) return;
  @autoreleasepool {
    NSProcessInfo* process = [NSProcessInfo processInfo];
    if (on) {
      id activity = [process beginActivityWithOptions:NSActivityUserInitiatedAllowingIdleSystemSleep
                                               reason:@"Quarl relays your messages while you are signed in"];
      activity_ = (void*)CFBridgingRetain(activity);
    } else {
      [process endActivity:CFBridgingRelease(activity_)];
      activity_ = nullptr;
    }
  }
}

}  // namespace quarl

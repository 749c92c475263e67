#import <AppKit/AppKit.h>

#import "AppDelegate_mac.h"

int main() {
  @autoreleasepool {
    NSApplication* application = [NSApplication sharedApplication];
    QuarlAppDelegate* delegate = [[QuarlAppDelegate alloc] init];
    [application setDelegate:delegate];
    [application run];
  }
  return 0;
}

#pragma once

#import <AppKit/AppKit.h>

// The application's delegate: one copy only, then the coordinator with every Mac part, its
// windows and menu, and a quit that lets a live operator run's stop reach the service.
@interface QuarlAppDelegate : NSObject <NSApplicationDelegate>
@end

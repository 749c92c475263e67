// What Apple's AppKit declares and GNUstep's does not, for the Objective-C++ check only.
#pragma once

#ifdef __OBJC__
#import <AppKit/AppKit.h>

// AppKit (NSWorkspace.h, macOS 10.15): how an app is opened.
@interface NSWorkspaceOpenConfiguration : NSObject
+ (instancetype)configuration;
@property BOOL activates;
@property BOOL createsNewApplicationInstance;
@end

@interface NSWorkspace (QuarlCheckGaps)
@property(readonly, copy) NSArray<NSRunningApplication*>* runningApplications;
- (void)openApplicationAtURL:(NSURL*)applicationURL
               configuration:(NSWorkspaceOpenConfiguration*)configuration
           completionHandler:(void (^)(NSRunningApplication* app, NSError* error))completionHandler;
@end
// AppKit (NSApplication.h): the application's tile in the Dock, and its activation policy
// (macOS 10.6).
@interface NSApplication (QuarlCheckGaps)
@property(readonly, strong) NSDockTile* dockTile;
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)activationPolicy;
// macOS 14: brings the application forward, in place of activateIgnoringOtherApps:.
- (void)activate;
@end

// AppKit (macOS 10.12): the convenience makers of a label and a push button.
@interface NSTextField (QuarlCheckGaps)
+ (instancetype)labelWithString:(NSString*)stringValue;
@end

@interface NSButton (QuarlCheckGaps)
+ (instancetype)buttonWithTitle:(NSString*)title target:(id)target action:(SEL)action;
@end

// AppKit (NSAnimation.h, NSAnimatablePropertyContainer): a window's animating proxy.
@interface NSWindow (QuarlCheckGaps)
- (instancetype)animator;
@end
// AppKit (NSMenu.h, macOS 10.6).
@interface NSMenu (QuarlCheckGaps)
- (void)removeAllItems;
@end

// AppKit (NSStatusItem.h, macOS 10.10): the button that shows a status item.
@interface NSStatusItem (QuarlCheckGaps)
@property(readonly, strong) NSStatusBarButton* button;
@end
// AppKit (NSAttributedString.h, macOS 10.4): the reader of Safari's web archives.
APPKIT_EXPORT NSString* const NSWebArchiveTextDocumentType;
// AppKit (NSBitmapImageRep.h, macOS 10.12): the PNG file type under its current name.
static const NSBitmapImageFileType NSBitmapImageFileTypePNG = NSPNGFileType;

// AppKit (NSPasteboard.h, macOS 10.6): emptying the pasteboard and writing objects to it.
@interface NSPasteboard (QuarlCheckGaps)
- (NSInteger)clearContents;
- (BOOL)writeObjects:(NSArray*)objects;
@end
#endif

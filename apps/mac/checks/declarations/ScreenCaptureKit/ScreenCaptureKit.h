// ScreenCaptureKit as the Mac layer uses it: what can be captured, a filter, and one picture
// (SCScreenshotManager, macOS 14). Declarations for the Objective-C++ check only.
#pragma once

#import <Foundation/Foundation.h>

#include <CoreGraphics/CoreGraphics.h>
#include <sys/types.h>

@interface SCRunningApplication : NSObject
@property(readonly) pid_t processID;
@property(readonly) NSString* applicationName;
@end

@interface SCDisplay : NSObject
@property(readonly) CGDirectDisplayID displayID;
@property(readonly) NSInteger width;
@property(readonly) NSInteger height;
@end

@interface SCWindow : NSObject
@property(readonly) CGWindowID windowID;
@property(readonly) NSInteger windowLayer;
@property(readonly, getter=isOnScreen) BOOL onScreen;
@property(readonly) SCRunningApplication* owningApplication;
@end

@interface SCShareableContent : NSObject
+ (void)getShareableContentExcludingDesktopWindows:(BOOL)excludeDesktopWindows
                               onScreenWindowsOnly:(BOOL)onScreenWindowsOnly
                                 completionHandler:(void (^)(SCShareableContent* shareableContent,
                                                             NSError* error))completionHandler;
@property(readonly) NSArray<SCDisplay*>* displays;
@property(readonly) NSArray<SCWindow*>* windows;
@property(readonly) NSArray<SCRunningApplication*>* applications;
@end

@interface SCContentFilter : NSObject
- (instancetype)initWithDesktopIndependentWindow:(SCWindow*)window;
- (instancetype)initWithDisplay:(SCDisplay*)display
          excludingApplications:(NSArray<SCRunningApplication*>*)applications
               exceptingWindows:(NSArray<SCWindow*>*)exceptingWindows;
@property(readonly) CGRect contentRect;
@property(readonly) float pointPixelScale;
@end

@interface SCStreamConfiguration : NSObject
@property size_t width;
@property size_t height;
@property BOOL showsCursor;
@end

@interface SCScreenshotManager : NSObject
+ (void)captureImageWithFilter:(SCContentFilter*)contentFilter
                 configuration:(SCStreamConfiguration*)config
             completionHandler:(void (^)(CGImageRef sampleBuffer, NSError* error))completionHandler;
@end

extern NSString* const SCStreamErrorDomain;
enum { SCStreamErrorUserDeclined = -3801 };

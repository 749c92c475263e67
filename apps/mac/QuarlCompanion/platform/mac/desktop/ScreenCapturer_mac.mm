#include "ScreenCapturer_mac.h"

#import <Foundation/Foundation.h>
#import <ImageIO/ImageIO.h>
#import <ScreenCaptureKit/ScreenCaptureKit.h>

#include <dispatch/dispatch.h>

#include <algorithm>

namespace quarl {

namespace {

dispatch_time_t within(double seconds) {
  return dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(seconds * NSEC_PER_SEC));
}

// What can be captured now, or none when the system did not say in time or refused.
SCShareableContent* shareableContent(NSError** failure) {
  __block SCShareableContent* found = nil;
  __block NSError* refused = nil;
  dispatch_semaphore_t answered = dispatch_semaphore_create(0);
  [SCShareableContent getShareableContentExcludingDesktopWindows:YES
                                             onScreenWindowsOnly:YES
                                               completionHandler:^(SCShareableContent* content, NSError* error) {
                                                 found = content;
                                                 refused = error;
                                                 dispatch_semaphore_signal(answered);
                                               }];
  if (dispatch_semaphore_wait(answered, within(MacScreenCapturer::captureSeconds)) != 0) return nil;
  *failure = refused;
  return found;
}

// Packed 8-bit RGB rows of `image`, drawn into a bitmap of its own size.
CapturedPicture rgbOf(CGImageRef image) {
  const auto width = CGImageGetWidth(image);
  const auto height = CGImageGetHeight(image);
  std::string rgba(width * height * 4, '\0');
  CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
  CGContextRef context =
      CGBitmapContextCreate(rgba.data(), width, height, 8, width * 4, space, kCGImageAlphaNoneSkipLast);
  CGColorSpaceRelease(space);
  CapturedPicture picture;
  if (!context) return picture;
  CGContextDrawImage(context, CGRectMake(0, 0, width, height), image);
  CGContextRelease(context);
  picture.width = static_cast<int>(width);
  picture.height = static_cast<int>(height);
  picture.rgb.resize(width * height * 3);
  for (std::size_t pixel = 0; pixel < width * height; ++pixel) {
    std::copy_n(rgba.data() + pixel * 4, 3, picture.rgb.data() + pixel * 3);
  }
  return picture;
}

bool refusedByOwner(NSError* error) {
  return error && [[error domain] isEqualToString:SCStreamErrorDomain] && [error code] == SCStreamErrorUserDeclined;
}

}  // namespace

std::variant<CapturedPicture, std::string> MacScreenCapturer::capture(const std::optional<RunningApp>& only,
                                                                      const std::vector<std::int64_t>& excluding) {
  @autoreleasepool {
    if (!CGPreflightScreenCaptureAccess()) return std::string(refusedSentence);
    NSError* failure = nil;
    SCShareableContent* content = shareableContent(&failure);
    if (refusedByOwner(failure)) return std::string(refusedSentence);
    if (!content) return std::string(failedSentence);
    if ([[content displays] count] == 0) return std::string(noScreenSentence);

    SCContentFilter* filter = nil;
    if (only) {
      // The app's front window: the system lists windows front first.
      for (SCWindow* window in [content windows]) {
        if (only->processId && [[window owningApplication] processID] == *only->processId &&
            [window windowLayer] == 0 && [window isOnScreen]) {
          filter = [[SCContentFilter alloc] initWithDesktopIndependentWindow:window];
          break;
        }
      }
      if (!filter) return noWindowSentence(only->name);
    } else {
      SCDisplay* display = [[content displays] firstObject];
      for (SCDisplay* candidate in [content displays]) {
        if ([candidate displayID] == CGMainDisplayID()) display = candidate;
      }
      NSMutableArray* left = [NSMutableArray array];
      for (SCRunningApplication* application in [content applications]) {
        if (std::find(excluding.begin(), excluding.end(), [application processID]) != excluding.end()) {
          [left addObject:application];
        }
      }
      filter = [[SCContentFilter alloc] initWithDisplay:display excludingApplications:left exceptingWindows:[NSArray array]];
    }

    SCStreamConfiguration* configuration = [[SCStreamConfiguration alloc] init];
    const CGRect area = [filter contentRect];
    configuration.width = static_cast<size_t>(area.size.width * [filter pointPixelScale]);
    configuration.height = static_cast<size_t>(area.size.height * [filter pointPixelScale]);
    configuration.showsCursor = NO;

    __block CGImageRef taken = nullptr;
    __block NSError* captureFailure = nil;
    dispatch_semaphore_t captured = dispatch_semaphore_create(0);
    [SCScreenshotManager captureImageWithFilter:filter
                                  configuration:configuration
                              completionHandler:^(CGImageRef image, NSError* error) {
                                // The picture belongs to the handler: it is kept past its return.
                                taken = image ? CGImageRetain(image) : nullptr;
                                captureFailure = error;
                                dispatch_semaphore_signal(captured);
                              }];
    if (dispatch_semaphore_wait(captured, within(captureSeconds)) != 0) return std::string(failedSentence);
    if (refusedByOwner(captureFailure)) return std::string(refusedSentence);
    if (!taken) return std::string(failedSentence);
    auto picture = rgbOf(taken);
    CGImageRelease(taken);
    if (picture.width == 0) return std::string(failedSentence);
    return picture;
  }
}

std::optional<std::string> MacScreenCapturer::jpeg(const CapturedPicture& picture, Size size, double quality) {
  @autoreleasepool {
    if (picture.width <= 0 || picture.height <= 0 || size.width <= 0 || size.height <= 0) return std::nullopt;
    const auto pixels = static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height);
    std::string rgbx(pixels * 4, '\xff');
    for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
      std::copy_n(picture.rgb.data() + pixel * 3, 3, rgbx.data() + pixel * 4);
    }
    CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
    CGContextRef source = CGBitmapContextCreate(rgbx.data(), static_cast<size_t>(picture.width),
                                                static_cast<size_t>(picture.height), 8,
                                                static_cast<size_t>(picture.width) * 4, space, kCGImageAlphaNoneSkipLast);
    CGContextRef scaled = CGBitmapContextCreate(nullptr, static_cast<size_t>(size.width),
                                                static_cast<size_t>(size.height), 8, 0, space, kCGImageAlphaNoneSkipLast);
    CGColorSpaceRelease(space);
    CGImageRef original = source ? CGBitmapContextCreateImage(source) : nullptr;
    CGImageRef small = nullptr;
    if (original && scaled) {
      CGContextSetInterpolationQuality(scaled, kCGInterpolationHigh);
      CGContextDrawImage(scaled, CGRectMake(0, 0, size.width, size.height), original);
      small = CGBitmapContextCreateImage(scaled);
    }
    if (original) CGImageRelease(original);
    if (source) CGContextRelease(source);
    if (scaled) CGContextRelease(scaled);
    if (!small) return std::nullopt;

    NSMutableData* bytes = [NSMutableData data];
    CGImageDestinationRef destination =
        CGImageDestinationCreateWithData((__bridge CFMutableDataRef)bytes, (__bridge CFStringRef) @"public.jpeg", 1,
                                         nullptr);
    bool written = false;
    if (destination) {
      NSDictionary* options =
          [NSDictionary dictionaryWithObject:[NSNumber numberWithDouble:quality]
                                      forKey:(__bridge NSString*)kCGImageDestinationLossyCompressionQuality];
      CGImageDestinationAddImage(destination, small, (__bridge CFDictionaryRef)options);
      written = CGImageDestinationFinalize(destination);
      CFRelease(destination);
    }
    CGImageRelease(small);
    if (!written) return std::nullopt;
    return std::string(static_cast<const char*>([bytes bytes]), [bytes length]);
  }
}

}  // namespace quarl

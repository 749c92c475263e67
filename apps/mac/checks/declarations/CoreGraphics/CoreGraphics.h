// Core Graphics as the Mac layer uses it for pictures: geometry, bitmap contexts and images.
// Declarations for the Objective-C++ check only.
#pragma once

#include <ApplicationServices/ApplicationServices.h>
#include <CoreFoundation/CoreFoundation.h>
#include <stddef.h>
#ifdef __OBJC__
#import <Foundation/Foundation.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct CGPoint {
  CGFloat x;
  CGFloat y;
} CGPoint;
typedef struct CGSize {
  CGFloat width;
  CGFloat height;
} CGSize;
typedef struct CGRect {
  CGPoint origin;
  CGSize size;
} CGRect;
CGRect CGRectMake(CGFloat x, CGFloat y, CGFloat width, CGFloat height);

typedef uint32_t CGWindowID;
typedef struct CGImage* CGImageRef;
typedef struct CGContext* CGContextRef;
typedef struct CGColorSpace* CGColorSpaceRef;
typedef uint32_t CGBitmapInfo;
enum : CGBitmapInfo { kCGImageAlphaPremultipliedLast = 1, kCGImageAlphaNoneSkipLast = 5 };
typedef int32_t CGInterpolationQuality;
enum : CGInterpolationQuality { kCGInterpolationHigh = 3 };

size_t CGImageGetWidth(CGImageRef image);
size_t CGImageGetHeight(CGImageRef image);
void CGImageRelease(CGImageRef image);
CGImageRef CGImageRetain(CGImageRef image);
CGColorSpaceRef CGColorSpaceCreateDeviceRGB(void);
void CGColorSpaceRelease(CGColorSpaceRef space);
CGContextRef CGBitmapContextCreate(void* data, size_t width, size_t height, size_t bitsPerComponent,
                                   size_t bytesPerRow, CGColorSpaceRef space, uint32_t bitmapInfo);
CGImageRef CGBitmapContextCreateImage(CGContextRef context);
void CGContextRelease(CGContextRef context);
void CGContextDrawImage(CGContextRef context, CGRect rect, CGImageRef image);
void CGContextSetInterpolationQuality(CGContextRef context, CGInterpolationQuality quality);

#ifdef __cplusplus
}
#endif

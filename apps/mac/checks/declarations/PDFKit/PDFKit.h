// PDFKit as the Mac layer uses it: a document opened from memory and the text of its pages.
// Declarations for the Objective-C++ check only.
#pragma once

#import <Foundation/Foundation.h>

@interface PDFPage : NSObject
// The page's text; nil when it has none.
@property(nonatomic, readonly) NSString* string;
@end

@interface PDFDocument : NSObject
- (instancetype)initWithData:(NSData*)data;
@property(nonatomic, readonly) BOOL isLocked;
@property(nonatomic, readonly) NSUInteger pageCount;
- (PDFPage*)pageAtIndex:(NSUInteger)index;
@end

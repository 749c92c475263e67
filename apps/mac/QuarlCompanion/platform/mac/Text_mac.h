#pragma once

#import <Foundation/Foundation.h>

#include <string>
#include <string_view>

namespace quarl {

// UTF-8 text as an NSString; nil when the bytes are not UTF-8.
inline NSString* nsString(std::string_view value) {
  return [[NSString alloc] initWithBytes:value.data() length:value.size() encoding:NSUTF8StringEncoding];
}

// An NSString as UTF-8; empty for nil. A lone surrogate, which has no UTF-8, becomes U+FFFD
// rather than failing as UTF8String would.
inline std::string utf8(NSString* text) {
  if (!text) return {};
  NSData* bytes = [text dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES];
  return std::string(static_cast<const char*>([bytes bytes]), [bytes length]);
}

}  // namespace quarl

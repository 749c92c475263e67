#pragma once

#import <Foundation/Foundation.h>

#include <string_view>

namespace quarl {

// UTF-8 text as an NSString; nil when the bytes are not UTF-8.
inline NSString* nsString(std::string_view value) {
  return [[NSString alloc] initWithBytes:value.data() length:value.size() encoding:NSUTF8StringEncoding];
}

}  // namespace quarl

#include "Keychain_mac.h"

#import <Foundation/Foundation.h>
#import <Security/Security.h>

#include "platform/mac/Text_mac.h"

namespace quarl {

namespace {

// The query that names one item: this service's generic password for `account`.
NSMutableDictionary* itemOf(const std::string& service, std::string_view account) {
  return [NSMutableDictionary dictionaryWithDictionary:@{
    (__bridge id)kSecClass : (__bridge id)kSecClassGenericPassword,
    (__bridge id)kSecAttrService : nsString(service),
    (__bridge id)kSecAttrAccount : nsString(account),
  }];
}

}  // namespace

std::optional<std::string> MacKeychain::read(std::string_view account) const {
  @autoreleasepool {
    NSMutableDictionary* query = itemOf(service_, account);
    [query setObject:[NSNumber numberWithBool:YES] forKey:(__bridge id)kSecReturnData];
    [query setObject:(__bridge id)kSecMatchLimitOne forKey:(__bridge id)kSecMatchLimit];
    CFTypeRef found = nullptr;
    if (SecItemCopyMatching((__bridge CFDictionaryRef)query, &found) != errSecSuccess || !found) return std::nullopt;
    NSData* data = CFBridgingRelease(found);
    if (![data isKindOfClass:[NSData class]]) return std::nullopt;
    // Bytes that are not UTF-8 are no token.
    NSString* value = [[NSString alloc] initWithData:data encoding:NSUTF8StringEncoding];
    if (!value) return std::nullopt;
    return std::string(static_cast<const char*>(data.bytes), data.length);
  }
}

bool MacKeychain::write(std::string_view account, std::string_view value) {
  @autoreleasepool {
    SecItemDelete((__bridge CFDictionaryRef)itemOf(service_, account));
    NSMutableDictionary* item = itemOf(service_, account);
    [item setObject:[NSData dataWithBytes:value.data() length:value.size()] forKey:(__bridge id)kSecValueData];
    return SecItemAdd((__bridge CFDictionaryRef)item, nullptr) == errSecSuccess;
  }
}

bool MacKeychain::remove(std::string_view account) {
  @autoreleasepool {
    return SecItemDelete((__bridge CFDictionaryRef)itemOf(service_, account)) == errSecSuccess;
  }
}

}  // namespace quarl

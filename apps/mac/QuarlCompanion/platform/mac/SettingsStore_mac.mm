#include "SettingsStore_mac.h"

#import <Foundation/Foundation.h>

#include "platform/mac/Text_mac.h"

namespace quarl {

namespace json = boost::json;

namespace {

id propertyOf(const json::value& value) {
  if (value.is_string()) return nsString(value.get_string());
  if (value.is_bool()) return [NSNumber numberWithBool:value.get_bool()];
  if (value.is_int64()) return [NSNumber numberWithLongLong:value.get_int64()];
  if (value.is_uint64()) return [NSNumber numberWithUnsignedLongLong:value.get_uint64()];
  if (value.is_double()) return [NSNumber numberWithDouble:value.get_double()];
  if (value.is_array()) {
    NSMutableArray* array = [NSMutableArray array];
    for (const auto& item : value.get_array()) {
      id property = propertyOf(item);
      if (!property) return nil;
      [array addObject:property];
    }
    return array;
  }
  if (value.is_object()) {
    NSMutableDictionary* dictionary = [NSMutableDictionary dictionary];
    for (const auto& [key, item] : value.get_object()) {
      id property = propertyOf(item);
      if (!property) return nil;
      [dictionary setObject:property forKey:nsString(key)];
    }
    return dictionary;
  }
  return nil;
}

// A number made from a boolean says so in its type encoding ("c" for BOOL, "B" for bool).
bool isBoolean(NSNumber* number) {
  const char* type = [number objCType];
  return type && (type[0] == 'c' || type[0] == 'B') && type[1] == '\0';
}

std::optional<json::value> valueOf(id property) {
  if ([property isKindOfClass:[NSString class]]) return json::value(json::string(utf8(property)));
  if ([property isKindOfClass:[NSNumber class]]) {
    NSNumber* number = property;
    if (isBoolean(number)) return json::value([number boolValue] == YES);
    const char type = [number objCType][0];
    if (type == 'f' || type == 'd') return json::value([number doubleValue]);
    return json::value(static_cast<std::int64_t>([number longLongValue]));
  }
  if ([property isKindOfClass:[NSArray class]]) {
    json::array array;
    for (id item in (NSArray*)property) {
      auto value = valueOf(item);
      if (!value) return std::nullopt;
      array.push_back(std::move(*value));
    }
    return json::value(std::move(array));
  }
  if ([property isKindOfClass:[NSDictionary class]]) {
    json::object object;
    NSDictionary* dictionary = property;
    for (id key in dictionary) {
      auto value = valueOf([dictionary objectForKey:key]);
      if (![key isKindOfClass:[NSString class]] || !value) return std::nullopt;
      object[utf8(key)] = std::move(*value);
    }
    return json::value(std::move(object));
  }
  return std::nullopt;
}

}  // namespace

std::optional<json::value> MacSettingsStore::read(std::string_view key) const {
  @autoreleasepool {
    id property = [[NSUserDefaults standardUserDefaults] objectForKey:nsString(key)];
    if (!property) return std::nullopt;
    return valueOf(property);
  }
}

bool MacSettingsStore::write(std::string_view key, json::value value) {
  @autoreleasepool {
    if (value.is_null()) return remove(key);
    id property = propertyOf(value);
    if (!property) return false;
    NSUserDefaults* defaults = [NSUserDefaults standardUserDefaults];
    [defaults setObject:property forKey:nsString(key)];
    return [defaults synchronize] == YES;
  }
}

bool MacSettingsStore::remove(std::string_view key) {
  @autoreleasepool {
    NSUserDefaults* defaults = [NSUserDefaults standardUserDefaults];
    [defaults removeObjectForKey:nsString(key)];
    return [defaults synchronize] == YES;
  }
}

}  // namespace quarl

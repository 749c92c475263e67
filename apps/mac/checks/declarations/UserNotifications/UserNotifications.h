// UserNotifications, as the Mac layer uses it: declarations for the Objective-C++ check only.
#pragma once

#import <Foundation/Foundation.h>

typedef NS_ENUM(NSInteger, UNAuthorizationStatus) {
  UNAuthorizationStatusNotDetermined = 0,
  UNAuthorizationStatusDenied,
  UNAuthorizationStatusAuthorized,
  UNAuthorizationStatusProvisional,
};

typedef NS_OPTIONS(NSUInteger, UNAuthorizationOptions) {
  UNAuthorizationOptionBadge = (1 << 0),
  UNAuthorizationOptionSound = (1 << 1),
  UNAuthorizationOptionAlert = (1 << 2),
};

@interface UNNotificationSettings : NSObject
@property(readonly) UNAuthorizationStatus authorizationStatus;
@end

@interface UNNotificationContent : NSObject
@end

@interface UNMutableNotificationContent : UNNotificationContent
@property(copy) NSString* title;
@property(copy) NSString* body;
@end

@interface UNNotificationTrigger : NSObject
@end

@interface UNNotificationRequest : NSObject
+ (instancetype)requestWithIdentifier:(NSString*)identifier
                              content:(UNNotificationContent*)content
                              trigger:(UNNotificationTrigger*)trigger;
@end

@interface UNUserNotificationCenter : NSObject
+ (UNUserNotificationCenter*)currentNotificationCenter;
- (void)requestAuthorizationWithOptions:(UNAuthorizationOptions)options
                      completionHandler:(void (^)(BOOL granted, NSError* error))completionHandler;
- (void)getNotificationSettingsWithCompletionHandler:(void (^)(UNNotificationSettings* settings))completionHandler;
- (void)addNotificationRequest:(UNNotificationRequest*)request
         withCompletionHandler:(void (^)(NSError* error))completionHandler;
@end

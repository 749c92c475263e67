#include "Notifications_mac.h"

#include <functional>

#import <Foundation/Foundation.h>
#import <UserNotifications/UserNotifications.h>
#include <dispatch/dispatch.h>

#include "platform/mac/Text_mac.h"

namespace quarl {

void MacNotifications::post(const std::string& title, const std::string& body) {
  NSString* heading = nsString(title);
  NSString* text = nsString(body);
  UNUserNotificationCenter* centre = [UNUserNotificationCenter currentNotificationCenter];
  [centre getNotificationSettingsWithCompletionHandler:^(UNNotificationSettings* settings) {
    if (settings.authorizationStatus != UNAuthorizationStatusAuthorized &&
        settings.authorizationStatus != UNAuthorizationStatusProvisional) {
      return;
    }
    UNMutableNotificationContent* content = [[UNMutableNotificationContent alloc] init];
    content.title = heading;
    content.body = text;
    UNNotificationRequest* request = [UNNotificationRequest requestWithIdentifier:[[NSUUID UUID] UUIDString]
                                                                          content:content
                                                                          trigger:nil];
    [centre addNotificationRequest:request withCompletionHandler:nil];
  }];
}

void MacNotifications::askToAllow(std::function<void(bool allowed)> answered) {
  const UNAuthorizationOptions options = UNAuthorizationOptionAlert | UNAuthorizationOptionSound | UNAuthorizationOptionBadge;
  [[UNUserNotificationCenter currentNotificationCenter]
      requestAuthorizationWithOptions:options
                    completionHandler:^(BOOL granted, NSError*) {
                      const bool allowed = granted == YES;
                      dispatch_async(dispatch_get_main_queue(), ^{
                        answered(allowed);
                      });
                    }];
}

}  // namespace quarl

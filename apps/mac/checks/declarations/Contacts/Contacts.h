// Contacts, as the Mac layer uses it: declarations for the Objective-C++ check only.
#pragma once

#import <Foundation/Foundation.h>

typedef NS_ENUM(NSInteger, CNEntityType) { CNEntityTypeContacts };
typedef NS_ENUM(NSInteger, CNAuthorizationStatus) {
  CNAuthorizationStatusNotDetermined = 0,
  CNAuthorizationStatusRestricted,
  CNAuthorizationStatusDenied,
  CNAuthorizationStatusAuthorized,
};
typedef NS_ENUM(NSInteger, CNContactFormatterStyle) {
  CNContactFormatterStyleFullName,
  CNContactFormatterStylePhoneticFullName,
};

@protocol CNKeyDescriptor <NSObject>
@end

@interface CNPhoneNumber : NSObject
+ (instancetype)phoneNumberWithStringValue:(NSString*)stringValue;
@end

@interface CNContact : NSObject
+ (NSPredicate*)predicateForContactsMatchingPhoneNumber:(CNPhoneNumber*)phoneNumber;
+ (NSPredicate*)predicateForContactsMatchingEmailAddress:(NSString*)emailAddress;
@end

@interface CNContactStore : NSObject
+ (CNAuthorizationStatus)authorizationStatusForEntityType:(CNEntityType)entityType;
- (NSArray<CNContact*>*)unifiedContactsMatchingPredicate:(NSPredicate*)predicate
                                             keysToFetch:(NSArray<id<CNKeyDescriptor>>*)keys
                                                   error:(NSError**)error;
@end

@interface CNContactFormatter : NSObject
+ (id<CNKeyDescriptor>)descriptorForRequiredKeysForStyle:(CNContactFormatterStyle)style;
+ (NSString*)stringFromContact:(CNContact*)contact style:(CNContactFormatterStyle)style;
@end

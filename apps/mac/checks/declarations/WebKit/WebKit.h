// WebKit (WKWebView and its configuration, cookie store, messages, downloads and file picker;
// user scripts, navigation and permission decisions, scripts and snapshots of the page, how a
// page out of sight is scheduled),
// as the Mac layer uses it: declarations for the Objective-C++ check only.
#pragma once

#import <AppKit/AppKit.h>

typedef NS_ENUM(NSInteger, WKNavigationActionPolicy) {
  WKNavigationActionPolicyCancel,
  WKNavigationActionPolicyAllow,
};

// macOS 12.
typedef NS_ENUM(NSInteger, WKPermissionDecision) {
  WKPermissionDecisionPrompt,
  WKPermissionDecisionGrant,
  WKPermissionDecisionDeny,
};

typedef NS_ENUM(NSInteger, WKMediaCaptureType) {
  WKMediaCaptureTypeCamera,
  WKMediaCaptureTypeMicrophone,
  WKMediaCaptureTypeCameraAndMicrophone,
};

typedef NS_ENUM(NSInteger, WKUserScriptInjectionTime) {
  WKUserScriptInjectionTimeAtDocumentStart,
  WKUserScriptInjectionTimeAtDocumentEnd,
};

typedef NS_ENUM(NSInteger, WKNavigationResponsePolicy) {
  WKNavigationResponsePolicyCancel,
  WKNavigationResponsePolicyAllow,
  WKNavigationResponsePolicyDownload,
};

@class WKWebView;
@class WKDownload;

@interface WKHTTPCookieStore : NSObject
- (void)setCookie:(NSHTTPCookie*)cookie completionHandler:(void (^)(void))completionHandler;
@end

@interface WKWebsiteDataStore : NSObject
+ (WKWebsiteDataStore*)defaultDataStore;
@property(readonly) WKHTTPCookieStore* httpCookieStore;
@end

@interface WKSecurityOrigin : NSObject
@property(readonly, copy) NSString* protocol;
@property(readonly, copy) NSString* host;
@property(readonly) NSInteger port;
@end

@interface WKFrameInfo : NSObject
@property(readonly, getter=isMainFrame) BOOL mainFrame;
@property(readonly) WKSecurityOrigin* securityOrigin;
@end

@interface WKScriptMessage : NSObject
@property(readonly, copy) id body;
@property(readonly, copy) WKFrameInfo* frameInfo;
@end

@interface WKNavigation : NSObject
@end

@interface WKWindowFeatures : NSObject
@end

@interface WKNavigationAction : NSObject
@property(readonly, copy) NSURLRequest* request;
// Nil for a navigation that would open a new window.
@property(readonly) WKFrameInfo* targetFrame;
@end

// macOS 11: the page's own world, where scripts see the page's objects.
@interface WKContentWorld : NSObject
+ (WKContentWorld*)pageWorld;
@end

@interface WKUserScript : NSObject
- (instancetype)initWithSource:(NSString*)source
                 injectionTime:(WKUserScriptInjectionTime)injectionTime
              forMainFrameOnly:(BOOL)forMainFrameOnly;
@end

@interface WKSnapshotConfiguration : NSObject
@end

@class WKUserContentController;
@protocol WKScriptMessageHandler <NSObject>
- (void)userContentController:(WKUserContentController*)userContentController
      didReceiveScriptMessage:(WKScriptMessage*)message;
@end

@interface WKUserContentController : NSObject
- (void)addScriptMessageHandler:(id<WKScriptMessageHandler>)scriptMessageHandler name:(NSString*)name;
- (void)removeScriptMessageHandlerForName:(NSString*)name;
- (void)addUserScript:(WKUserScript*)userScript;
@end

// macOS 14.
typedef NS_ENUM(NSInteger, WKInactiveSchedulingPolicy) {
  WKInactiveSchedulingPolicySuspend,
  WKInactiveSchedulingPolicyThrottle,
  WKInactiveSchedulingPolicyNone,
};

@interface WKPreferences : NSObject
// macOS 14.
@property WKInactiveSchedulingPolicy inactiveSchedulingPolicy;
@end

@interface WKWebViewConfiguration : NSObject
@property(strong) WKWebsiteDataStore* websiteDataStore;
@property(strong) WKPreferences* preferences;
@property(strong) WKUserContentController* userContentController;
@end

@interface WKNavigationResponse : NSObject
@property(readonly) BOOL canShowMIMEType;
@property(readonly, copy) NSURLResponse* response;
@end

@interface WKOpenPanelParameters : NSObject
@property(readonly) BOOL allowsMultipleSelection;
@end

@protocol WKDownloadDelegate <NSObject>
- (void)download:(WKDownload*)download
    decideDestinationUsingResponse:(NSURLResponse*)response
                 suggestedFilename:(NSString*)suggestedFilename
                 completionHandler:(void (^)(NSURL* destination))completionHandler;
@end

@interface WKDownload : NSObject
@property(weak) id<WKDownloadDelegate> delegate;
@end

@protocol WKNavigationDelegate <NSObject>
@optional
- (void)webView:(WKWebView*)webView
    decidePolicyForNavigationAction:(WKNavigationAction*)navigationAction
                    decisionHandler:(void (^)(WKNavigationActionPolicy))decisionHandler;
- (void)webView:(WKWebView*)webView
    didFailProvisionalNavigation:(WKNavigation*)navigation
                       withError:(NSError*)error;
- (void)webView:(WKWebView*)webView
    decidePolicyForNavigationResponse:(WKNavigationResponse*)navigationResponse
                      decisionHandler:(void (^)(WKNavigationResponsePolicy))decisionHandler;
- (void)webView:(WKWebView*)webView
    navigationResponse:(WKNavigationResponse*)navigationResponse
     didBecomeDownload:(WKDownload*)download;
@end

@protocol WKUIDelegate <NSObject>
@optional
- (WKWebView*)webView:(WKWebView*)webView
    createWebViewWithConfiguration:(WKWebViewConfiguration*)configuration
               forNavigationAction:(WKNavigationAction*)navigationAction
                    windowFeatures:(WKWindowFeatures*)windowFeatures;
- (void)webView:(WKWebView*)webView
    requestMediaCapturePermissionForOrigin:(WKSecurityOrigin*)origin
                          initiatedByFrame:(WKFrameInfo*)frame
                                      type:(WKMediaCaptureType)type
                           decisionHandler:(void (^)(WKPermissionDecision decision))decisionHandler;
- (void)webView:(WKWebView*)webView
    runOpenPanelWithParameters:(WKOpenPanelParameters*)parameters
              initiatedByFrame:(WKFrameInfo*)frame
             completionHandler:(void (^)(NSArray<NSURL*>* URLs))completionHandler;
@end

@interface WKWebView : NSView
- (instancetype)initWithFrame:(NSRect)frame configuration:(WKWebViewConfiguration*)configuration;
@property(readonly, copy) WKWebViewConfiguration* configuration;
@property(weak) id<WKNavigationDelegate> navigationDelegate;
@property(weak) id<WKUIDelegate> UIDelegate;
- (id)loadRequest:(NSURLRequest*)request;
- (id)loadHTMLString:(NSString*)string baseURL:(NSURL*)baseURL;
- (id)reload;
- (void)stopLoading;
@property(readonly, copy) NSURL* URL;
@property(copy) NSString* customUserAgent;
- (void)evaluateJavaScript:(NSString*)javaScriptString completionHandler:(void (^)(id result, NSError* error))completionHandler;
// macOS 11.
- (void)callAsyncJavaScript:(NSString*)functionBody
                  arguments:(NSDictionary<NSString*, id>*)arguments
                    inFrame:(WKFrameInfo*)frame
             inContentWorld:(WKContentWorld*)contentWorld
          completionHandler:(void (^)(id result, NSError* error))completionHandler;
- (void)takeSnapshotWithConfiguration:(WKSnapshotConfiguration*)snapshotConfiguration
                    completionHandler:(void (^)(NSImage* snapshotImage, NSError* error))completionHandler;
@end

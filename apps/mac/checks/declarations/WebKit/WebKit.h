// WebKit (WKWebView and its configuration, cookie store, messages, downloads and file picker),
// as the Mac layer uses it: declarations for the Objective-C++ check only.
#pragma once

#import <AppKit/AppKit.h>

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

@class WKUserContentController;
@protocol WKScriptMessageHandler <NSObject>
- (void)userContentController:(WKUserContentController*)userContentController
      didReceiveScriptMessage:(WKScriptMessage*)message;
@end

@interface WKUserContentController : NSObject
- (void)addScriptMessageHandler:(id<WKScriptMessageHandler>)scriptMessageHandler name:(NSString*)name;
- (void)removeScriptMessageHandlerForName:(NSString*)name;
@end

@interface WKWebViewConfiguration : NSObject
@property(strong) WKWebsiteDataStore* websiteDataStore;
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
    decidePolicyForNavigationResponse:(WKNavigationResponse*)navigationResponse
                      decisionHandler:(void (^)(WKNavigationResponsePolicy))decisionHandler;
- (void)webView:(WKWebView*)webView
    navigationResponse:(WKNavigationResponse*)navigationResponse
     didBecomeDownload:(WKDownload*)download;
@end

@protocol WKUIDelegate <NSObject>
@optional
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
@end

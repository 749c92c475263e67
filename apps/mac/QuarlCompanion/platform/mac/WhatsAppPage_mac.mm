#include "WhatsAppPage_mac.h"

#import <AppKit/AppKit.h>
#import <WebKit/WebKit.h>

#include <boost/json/serialize.hpp>

#include "Completion_mac.h"
#include "WhatsAppScripts.h"
#include "WhatsAppSessionState.h"
#include "platform/WhatsAppPageLog.h"
#include "platform/mac/Text_mac.h"

namespace {

// A script's value as the text the session reads: a string as it is, nothing for undefined,
// anything else as JSON.
quarl::WhatsAppPage::ScriptResult resultOf(id value, NSError* error) {
  if (error) return {std::nullopt, quarl::utf8(error.localizedDescription)};
  if (!value) return {std::string(), std::nullopt};
  if ([value isKindOfClass:[NSString class]]) return {quarl::utf8(value), std::nullopt};
  NSData* json = [NSJSONSerialization dataWithJSONObject:value options:NSJSONWritingFragmentsAllowed error:nullptr];
  if (!json) return {std::nullopt, "the script's answer cannot be written as JSON"};
  return {std::string(static_cast<const char*>(json.bytes), json.length), std::nullopt};
}

}  // namespace

// The window that carries the page and is never seen: closing it only hides it, and only when
// the session agrees.
@interface QuarlParkedWindow : NSWindow
@end

@implementation QuarlParkedWindow
@end

// What WebKit and the window ask of the page's host.
@interface QuarlWhatsAppDelegate : NSObject <WKNavigationDelegate, WKUIDelegate, NSWindowDelegate> {
 @public
  std::string site;  // the last address loaded; the page stays within its origin
  std::function<bool()> closing;
}
@end

@implementation QuarlWhatsAppDelegate

- (void)webView:(WKWebView*)webView
    decidePolicyForNavigationAction:(WKNavigationAction*)action
                    decisionHandler:(void (^)(WKNavigationActionPolicy))decisionHandler {
  (void)webView;
  const auto url = quarl::utf8(action.request.URL.absoluteString);
  if (!action.targetFrame) {
    quarl::WhatsAppPageLog::newWindowRefused(url);
    decisionHandler(WKNavigationActionPolicyCancel);
    return;
  }
  if (quarl::WhatsAppWeb::isWithinSite(url, site)) {
    decisionHandler(WKNavigationActionPolicyAllow);
    return;
  }
  quarl::WhatsAppPageLog::leavingRefused(url);
  decisionHandler(WKNavigationActionPolicyCancel);
}

- (void)webView:(WKWebView*)webView
    decidePolicyForNavigationResponse:(WKNavigationResponse*)response
                      decisionHandler:(void (^)(WKNavigationResponsePolicy))decisionHandler {
  (void)webView;
  if (response.canShowMIMEType) {
    decisionHandler(WKNavigationResponsePolicyAllow);
    return;
  }
  quarl::WhatsAppPageLog::downloadRefused(quarl::utf8(response.response.URL.absoluteString));
  decisionHandler(WKNavigationResponsePolicyCancel);
}

- (void)webView:(WKWebView*)webView
    didFailProvisionalNavigation:(WKNavigation*)navigation
                       withError:(NSError*)error {
  (void)webView;
  (void)navigation;
  if ([error.domain isEqualToString:NSURLErrorDomain] && error.code == NSURLErrorTimedOut) {
    quarl::WhatsAppPageLog::loadTimedOut();
  }
}

// window.open and links to new windows come here: no view is made for them.
- (WKWebView*)webView:(WKWebView*)webView
    createWebViewWithConfiguration:(WKWebViewConfiguration*)configuration
               forNavigationAction:(WKNavigationAction*)action
                    windowFeatures:(WKWindowFeatures*)features {
  (void)webView;
  (void)configuration;
  (void)features;
  quarl::WhatsAppPageLog::newWindowRefused(quarl::utf8(action.request.URL.absoluteString));
  return nil;
}

- (void)webView:(WKWebView*)webView
    requestMediaCapturePermissionForOrigin:(WKSecurityOrigin*)origin
                          initiatedByFrame:(WKFrameInfo*)frame
                                      type:(WKMediaCaptureType)type
                           decisionHandler:(void (^)(WKPermissionDecision))decisionHandler {
  (void)webView;
  (void)origin;
  (void)frame;
  (void)type;
  quarl::WhatsAppPageLog::permissionRefused("for the camera or microphone");
  decisionHandler(WKPermissionDecisionDeny);
}

- (BOOL)windowShouldClose:(NSWindow*)window {
  if (closing && closing()) [window orderOut:nil];
  return NO;
}
@end

namespace quarl {
namespace asio = boost::asio;
using WhatsAppWeb::Point;
using WhatsAppWeb::Rect;

struct MacWhatsAppPage::View {
  QuarlParkedWindow* window = nil;
  WKWebView* web = nil;
  QuarlWhatsAppDelegate* delegate = nil;
  id moveObserver = nil;
};

MacWhatsAppPage::MacWhatsAppPage(asio::any_io_executor executor) : executor_(std::move(executor)) {}

MacWhatsAppPage::~MacWhatsAppPage() {
  if (!view_) return;
  if (view_->moveObserver) [[NSNotificationCenter defaultCenter] removeObserver:view_->moveObserver];
  [view_->web stopLoading];
  [view_->window orderOut:nil];
  delete view_;
}

void MacWhatsAppPage::create() {
  view_ = new View;
  view_->delegate = [[QuarlWhatsAppDelegate alloc] init];
  WKWebViewConfiguration* configuration = [[WKWebViewConfiguration alloc] init];
  configuration.websiteDataStore = [WKWebsiteDataStore defaultDataStore];
  // The parked window is never on screen, and by default WebKit lets the processes of a page
  // out of use be suspended: WhatsApp's page must keep running to hear messages as they come.
  configuration.preferences.inactiveSchedulingPolicy = WKInactiveSchedulingPolicyNone;
  WKUserScript* shim = [[WKUserScript alloc] initWithSource:nsString(WhatsAppWeb::visibilityShimScript())
                                              injectionTime:WKUserScriptInjectionTimeAtDocumentStart
                                           forMainFrameOnly:NO];
  [configuration.userContentController addUserScript:shim];
  const NSRect frame = NSMakeRect(0, 0, WhatsAppWeb::webViewSize.width, WhatsAppWeb::webViewSize.height);
  WKWebView* web = [[WKWebView alloc] initWithFrame:frame configuration:configuration];
  web.customUserAgent = nsString(WhatsAppWeb::userAgent);
  web.navigationDelegate = view_->delegate;
  web.UIDelegate = view_->delegate;

  NSWindowStyleMask style = NSWindowStyleMaskTitled;
  style |= NSWindowStyleMaskClosable;
  style |= NSWindowStyleMaskResizable;
  QuarlParkedWindow* window = [[QuarlParkedWindow alloc] initWithContentRect:frame
                                                                   styleMask:style
                                                                     backing:NSBackingStoreBuffered
                                                                       defer:NO];
  [window setReleasedWhenClosed:NO];
  [window setExcludedFromWindowsMenu:YES];
  NSWindowCollectionBehavior behaviour = NSWindowCollectionBehaviorTransient;
  behaviour |= NSWindowCollectionBehaviorIgnoresCycle;
  [window setCollectionBehavior:behaviour];
  [window setContentView:web];
  [window setDelegate:view_->delegate];
  view_->window = window;
  view_->web = web;
}

asio::awaitable<std::optional<std::string>> MacWhatsAppPage::open() {
  if (!view_) create();
  co_return std::nullopt;
}

asio::awaitable<std::string> MacWhatsAppPage::currentUrl() { co_return quarl::utf8(view_->web.URL.absoluteString); }

asio::awaitable<void> MacWhatsAppPage::load(std::string url, std::chrono::seconds timeout) {
  NSURL* address = [NSURL URLWithString:nsString(url)];
  if (!address) co_return;
  view_->delegate->site = url;
  [view_->web loadRequest:[NSURLRequest requestWithURL:address
                                           cachePolicy:NSURLRequestUseProtocolCachePolicy
                                       timeoutInterval:static_cast<NSTimeInterval>(timeout.count())]];
  co_return;
}

asio::awaitable<WhatsAppPage::ScriptResult> MacWhatsAppPage::evaluate(std::string script) {
  Completion<ScriptResult> answered(executor_);
  const auto answer = answered.handler();
  [view_->web evaluateJavaScript:nsString(script)
               completionHandler:^(id value, NSError* error) {
                 answer(resultOf(value, error));
               }];
  co_return co_await answered.value();
}

asio::awaitable<WhatsAppPage::ScriptResult> MacWhatsAppPage::callAsync(std::string body, boost::json::object arguments) {
  const auto encoded = boost::json::serialize(arguments);
  NSDictionary* bound = [NSJSONSerialization JSONObjectWithData:[NSData dataWithBytes:encoded.data() length:encoded.size()]
                                                        options:0
                                                          error:nullptr];
  Completion<ScriptResult> answered(executor_);
  const auto answer = answered.handler();
  // In the page's own world: the fibres the scripts read are the page's objects.
  [view_->web callAsyncJavaScript:nsString(body)
                        arguments:bound
                          inFrame:nil
                   inContentWorld:[WKContentWorld pageWorld]
                completionHandler:^(id value, NSError* error) {
                  answer(resultOf(value, error));
                }];
  co_return co_await answered.value();
}

asio::awaitable<std::vector<Rect>> MacWhatsAppPage::screenFrames() {
  std::vector<Rect> frames;
  for (NSScreen* screen in [NSScreen screens]) {
    const NSRect frame = screen.frame;
    frames.push_back({{frame.origin.x, frame.origin.y}, {frame.size.width, frame.size.height}});
  }
  co_return frames;
}

asio::awaitable<Point> MacWhatsAppPage::windowOrigin() {
  const NSPoint origin = view_->window.frame.origin;
  co_return Point{origin.x, origin.y};
}

// Ordered in without being made key: a window that is not ordered in runs no timers and draws
// nothing, and one that took key would take the owner's typing.
asio::awaitable<void> MacWhatsAppPage::placeWindow(Point origin) {
  [view_->window setFrameOrigin:NSMakePoint(origin.x, origin.y)];
  [view_->window orderFront:nil];
  co_return;
}

asio::awaitable<void> MacWhatsAppPage::presentWindow(std::string title) {
  [view_->window setTitle:nsString(title)];
  [view_->window center];
  [view_->window makeKeyAndOrderFront:nil];
  [NSApp activate];
  co_return;
}

void MacWhatsAppPage::watchWindow(std::function<void()> moved, std::function<bool()> closing) {
  view_->delegate->closing = std::move(closing);
  if (view_->moveObserver) [[NSNotificationCenter defaultCenter] removeObserver:view_->moveObserver];
  auto executor = executor_;
  view_->moveObserver = [[NSNotificationCenter defaultCenter] addObserverForName:NSWindowDidMoveNotification
                                                                          object:view_->window
                                                                           queue:[NSOperationQueue mainQueue]
                                                                      usingBlock:^(NSNotification*) {
                                                                        asio::post(executor, moved);
                                                                      }];
}

void MacWhatsAppPage::takeKeys() {
  if (!view_) return;
  [view_->window makeKeyWindow];
  [view_->window makeFirstResponder:view_->web];
}

asio::awaitable<std::optional<std::string>> MacWhatsAppPage::savePicture(std::string path) {
  Completion<std::optional<std::string>> saved(executor_);
  const auto answer = saved.handler();
  [view_->web takeSnapshotWithConfiguration:nil
                          completionHandler:^(NSImage* picture, NSError* error) {
                            if (!picture) {
                              answer("the picture of the page could not be taken: " +
                                     (error ? quarl::utf8(error.localizedDescription) : "the view gave no picture"));
                              return;
                            }
                            NSBitmapImageRep* bitmap = [[NSBitmapImageRep alloc] initWithData:picture.TIFFRepresentation];
                            NSData* png = [bitmap representationUsingType:NSBitmapImageFileTypePNG
                                                               properties:[NSDictionary dictionary]];
                            if (!png || ![png writeToFile:nsString(path) atomically:YES]) {
                              answer("the picture of the page could not be saved at " + path);
                              return;
                            }
                            answer(std::nullopt);
                          }];
  co_return co_await saved.value();
}

}  // namespace quarl

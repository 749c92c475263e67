#include "PanelWindow_mac.h"

#import <AppKit/AppKit.h>
#import <WebKit/WebKit.h>

#include <boost/asio/this_coro.hpp>

#include "Completion_mac.h"
#include "PanelPages.h"
#include "platform/mac/Text_mac.h"

// What the web view asks of the application: its messages, downloads and file picker.
@interface QuarlPanelDelegate : NSObject <WKScriptMessageHandler, WKNavigationDelegate, WKUIDelegate, WKDownloadDelegate> {
 @public
  quarl::MacPanelView::Handlers handlers;
  NSURL* panel;          // the service's page last loaded; nil until one is
  BOOL showingOwnPage;   // one of the companion's own pages was drawn last
}
@end

@implementation QuarlPanelDelegate

// Only the window's main frame speaks to the coordinator, and only while it shows one of the
// companion's own pages (drawn from a string, so of no host) or a page of the service's
// origin: neither a frame inside a page nor a site the panel links to can sign the Mac out.
- (BOOL)trusts:(WKFrameInfo*)frame {
  if (![frame isMainFrame]) return NO;
  WKSecurityOrigin* origin = [frame securityOrigin];
  if ([[origin host] length] == 0) return showingOwnPage;
  return panel && [[origin protocol] isEqualToString:[panel scheme]] && [[origin host] isEqualToString:[panel host]] &&
         [origin port] == [[panel port] integerValue];
}
- (void)userContentController:(WKUserContentController*)controller didReceiveScriptMessage:(WKScriptMessage*)message {
  (void)controller;
  if (![self trusts:[message frameInfo]] || ![[message body] isKindOfClass:[NSString class]]) return;
  NSString* body = [message body];
  if ([body isEqualToString:quarl::nsString(quarl::PanelPages::signInMessage)] && handlers.signIn) handlers.signIn();
  if ([body isEqualToString:quarl::nsString(quarl::PanelPages::sessionLapsedMessage)] && handlers.sessionLapsed) {
    handlers.sessionLapsed();
  }
}

- (void)webView:(WKWebView*)webView
    decidePolicyForNavigationResponse:(WKNavigationResponse*)navigationResponse
                      decisionHandler:(void (^)(WKNavigationResponsePolicy))decisionHandler {
  (void)webView;
  decisionHandler([navigationResponse canShowMIMEType] ? WKNavigationResponsePolicyAllow
                                                       : WKNavigationResponsePolicyDownload);
}

- (void)webView:(WKWebView*)webView
    navigationResponse:(WKNavigationResponse*)navigationResponse
     didBecomeDownload:(WKDownload*)download {
  (void)webView;
  (void)navigationResponse;
  download.delegate = self;
}

// A download goes to the Downloads folder under its suggested name, never over a file there.
- (void)download:(WKDownload*)download
    decideDestinationUsingResponse:(NSURLResponse*)response
                 suggestedFilename:(NSString*)suggestedFilename
                 completionHandler:(void (^)(NSURL* destination))completionHandler {
  (void)download;
  (void)response;
  NSFileManager* files = [NSFileManager defaultManager];
  NSURL* folder = [NSURL
      fileURLWithPath:[NSSearchPathForDirectoriesInDomains(NSDownloadsDirectory, NSUserDomainMask, YES) firstObject]];
  NSString* name = [suggestedFilename lastPathComponent];
  NSURL* destination = [folder URLByAppendingPathComponent:name];
  for (int copy = 2; [files fileExistsAtPath:[destination path]]; ++copy) {
    NSString* numbered = [NSString stringWithFormat:@"%@ %d", [name stringByDeletingPathExtension], copy];
    if ([[name pathExtension] length] > 0) numbered = [numbered stringByAppendingPathExtension:[name pathExtension]];
    destination = [folder URLByAppendingPathComponent:numbered];
  }
  completionHandler(destination);
}

- (void)webView:(WKWebView*)webView
    runOpenPanelWithParameters:(WKOpenPanelParameters*)parameters
              initiatedByFrame:(WKFrameInfo*)frame
             completionHandler:(void (^)(NSArray<NSURL*>* URLs))completionHandler {
  (void)frame;
  NSOpenPanel* picker = [NSOpenPanel openPanel];
  [picker setAllowsMultipleSelection:[parameters allowsMultipleSelection]];
  [picker setCanChooseDirectories:NO];
  [picker beginSheetModalForWindow:[webView window]
                 completionHandler:^(NSModalResponse result) {
                   completionHandler(result == NSModalResponseOK ? [picker URLs] : nil);
                 }];
}
@end

namespace quarl {

namespace {

// How long the cookie store may take to confirm one cookie.
constexpr std::chrono::seconds cookieStoreBound{5};

}  // namespace

struct MacPanelView::Window {
  NSWindow* window = nil;
  WKWebView* view = nil;
  QuarlPanelDelegate* delegate = nil;
};

MacPanelView::MacPanelView(Handlers handlers) : window_(new Window) {
  window_->delegate = [[QuarlPanelDelegate alloc] init];
  window_->delegate->handlers = std::move(handlers);
  WKWebViewConfiguration* configuration = [[WKWebViewConfiguration alloc] init];
  configuration.websiteDataStore = [WKWebsiteDataStore defaultDataStore];
  [configuration.userContentController addScriptMessageHandler:window_->delegate name:nsString(PanelPages::handlerName)];

  NSWindowStyleMask style = NSWindowStyleMaskTitled;
  style |= NSWindowStyleMaskClosable;
  style |= NSWindowStyleMaskResizable;
  style |= NSWindowStyleMaskMiniaturizable;
  NSWindow* window = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, 1100, 760)
                                                 styleMask:style
                                                   backing:NSBackingStoreBuffered
                                                     defer:NO];
  [window setTitle:@"Quarl"];
  [window setReleasedWhenClosed:NO];
  [window setFrameAutosaveName:@"QuarlPanel"];
  WKWebView* view = [[WKWebView alloc] initWithFrame:[[window contentView] bounds] configuration:configuration];
  [view setAutoresizingMask:NSViewWidthSizable | NSViewHeightSizable];
  view.navigationDelegate = window_->delegate;
  view.UIDelegate = window_->delegate;
  [[window contentView] addSubview:view];
  window_->window = window;
  window_->view = view;
}

MacPanelView::~MacPanelView() {
  [window_->view.configuration.userContentController removeScriptMessageHandlerForName:nsString(PanelPages::handlerName)];
  [window_->window close];
  delete window_;
}

void MacPanelView::bringUp() {
  if (![window_->window isVisible]) [window_->window center];
  [NSApp activate];
  [window_->window makeKeyAndOrderFront:nil];
}

void MacPanelView::close() { [window_->window close]; }

// Each header is read on its own: a dictionary holds one Set-Cookie value, a response many.
boost::asio::awaitable<std::size_t> MacPanelView::storeCookies(std::vector<std::string> setCookie, std::string url) {
  auto executor = co_await boost::asio::this_coro::executor;
  NSURL* site = [NSURL URLWithString:nsString(url)];
  NSMutableArray* cookies = [NSMutableArray array];
  for (const auto& header : setCookie) {
    NSDictionary* fields = [NSDictionary dictionaryWithObject:nsString(header) forKey:@"Set-Cookie"];
    [cookies addObjectsFromArray:[NSHTTPCookie cookiesWithResponseHeaderFields:fields forURL:site]];
  }
  WKHTTPCookieStore* store = window_->view.configuration.websiteDataStore.httpCookieStore;
  std::size_t taken = 0;
  for (NSHTTPCookie* cookie in cookies) {
    // The panel must not load before its cookies are in: each one is awaited, for a few
    // seconds at most, so that a store that never answers cannot hold the window blank.
    Completion<bool> stored(executor);
    const auto done = stored.handler();
    [store setCookie:cookie
        completionHandler:^{
          done(true);
        }];
    if (co_await stored.valueWithin(cookieStoreBound)) ++taken;
  }
  co_return taken;
}

void MacPanelView::load(const std::string& url) {
  NSURL* address = [NSURL URLWithString:nsString(url)];
  if (!address) return;
  window_->delegate->panel = address;
  window_->delegate->showingOwnPage = NO;
  [window_->view loadRequest:[NSURLRequest requestWithURL:address]];
}

void MacPanelView::reload() { [window_->view reload]; }

void MacPanelView::showSignIn(const std::optional<std::string>& reason) {
  const auto code = window_->delegate->handlers.pairingCode ? window_->delegate->handlers.pairingCode() : std::nullopt;
  window_->delegate->showingOwnPage = YES;
  [window_->view loadHTMLString:nsString(PanelPages::signIn(reason, code)) baseURL:nil];
}

void MacPanelView::showNotice(const std::optional<std::string>& heading, const std::string& body) {
  window_->delegate->showingOwnPage = YES;
  [window_->view loadHTMLString:nsString(PanelPages::notice(heading, body)) baseURL:nil];
}

}  // namespace quarl

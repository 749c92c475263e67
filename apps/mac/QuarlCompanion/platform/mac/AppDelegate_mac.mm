#import "AppDelegate_mac.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <chrono>
#include <thread>
#include <utility>
#include <unistd.h>

#include "BeastHttpTransport.h"
#include "BundleIdentity.h"
#include "Companion.h"
#include "KeptAlive.h"
#include "CompanionHost_mac.h"
#include "CompanionWindows_mac.h"
#include "DesktopStepExecutor.h"
#include "FileOperator_mac.h"
#include "FileStepExecutor.h"
#include "KeepAwake_mac.h"
#include "Keychain_mac.h"
#include "LogSink_mac.h"
#include "LoginItem_mac.h"
#include "MainQueue_mac.h"
#include "MacStepExecutor.h"
#include "NapHold_mac.h"
#include "Notifications_mac.h"
#include "OperatorBar_mac.h"
#include "PicturePasteboard_mac.h"
#include "QueueExecutor.h"
#include "SettingsStore_mac.h"
#include "StatusMenu_mac.h"
#include "StopHotKey_mac.h"
#include "StoreWatcher_mac.h"
#include "WhatsAppPage_mac.h"
#include "desktop/AXSource_mac.h"
#include "desktop/EventActor_mac.h"
#include "desktop/ScreenCapturer_mac.h"
#include "platform/DocumentReading.h"
#include "platform/HostIdentity.h"
#include "platform/mac/Text_mac.h"

namespace {

// How long a quit waits for the stop of a live run to reach the service.
constexpr std::chrono::seconds stopReportBound{2};

// What the application is made of. The network's timers and sockets run on a thread of their
// own; every completion comes back to the main queue, where the coordinator lives.
struct Application {
  boost::asio::io_context network;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> keepRunning =
      boost::asio::make_work_guard(network);
  std::thread networkThread{[this] { network.run(); }};
  boost::asio::any_io_executor main{quarl::QueueExecutor(network, quarl::postToMainQueue, nullptr)};
  std::shared_ptr<quarl::MacCompanionWindows> windows = std::make_shared<quarl::MacCompanionWindows>(main);
  std::shared_ptr<quarl::Companion> companion;
  std::unique_ptr<quarl::MacStatusMenu> menu;

  ~Application() {
    keepRunning.reset();
    network.stop();
    networkThread.join();
  }
};

// The operator's parts on the Mac. Documents are read by this same program in a child of its
// own, ended after 20 s, so that a hostile document cannot hang a step. The companion keeps its
// settings and credentials under Library, where the operator never looks, so it names no
// folders of its own.
quarl::OperatorParts macOperatorParts(const std::shared_ptr<quarl::MacCompanionHost>& host,
                                      const std::shared_ptr<const quarl::Clock>& clock) {
  auto files = std::make_shared<quarl::FileStepExecutor>(std::make_shared<quarl::SpotlightFileOperator>(
      NSHomeDirectory().fileSystemRepresentation,
      quarl::documentReaderInChild([[NSBundle mainBundle] executablePath].fileSystemRepresentation,
                                   std::chrono::seconds(20)),
      quarl::SpotlightFileOperator::Limits{}, std::vector<std::string>{}));
  auto source = std::make_shared<quarl::MacAXSource>();
  auto desktop = std::make_shared<quarl::DesktopStepExecutor>(
      quarl::DesktopParts{source, std::make_shared<quarl::MacScreenCapturer>(),
                          std::make_shared<quarl::MacEventActor>(source)},
      [host] { return host->operatorCaps(); }, clock, static_cast<std::int64_t>(::getpid()));
  return {std::make_shared<quarl::MacOperatorBar>(), std::make_shared<quarl::MacStopHotKey>(),
          std::make_shared<quarl::MacKeepAwake>(),
          std::make_shared<quarl::MacStepExecutor>(std::move(files), std::move(desktop))};
}

// The one application of this process.
std::unique_ptr<Application> application;

// Answers AppKit's question of whether to quit, once however many ways reach it.
void quitOnce() {
  static bool answered = false;
  if (std::exchange(answered, true)) return;
  [NSApp replyToApplicationShouldTerminate:YES];
}

NSMenuItem* itemFor(NSString* title, SEL action, NSString* key) {
  return [[NSMenuItem alloc] initWithTitle:title action:action keyEquivalent:key];
}

// The application's menu bar while a window is in front: Quit, and the editing keys the panel's
// and setup's fields answer to.
NSMenu* mainMenu() {
  NSMenu* bar = [[NSMenu alloc] initWithTitle:@""];
  NSMenu* quarl = [[NSMenu alloc] initWithTitle:@"Quarl"];
  [quarl addItem:itemFor(@"Quit Quarl", @selector(terminate:), @"q")];
  NSMenu* edit = [[NSMenu alloc] initWithTitle:@"Edit"];
  [edit addItem:itemFor(@"Undo", @selector(undo:), @"z")];
  [edit addItem:itemFor(@"Redo", @selector(redo:), @"Z")];
  [edit addItem:[NSMenuItem separatorItem]];
  [edit addItem:itemFor(@"Cut", @selector(cut:), @"x")];
  [edit addItem:itemFor(@"Copy", @selector(copy:), @"c")];
  [edit addItem:itemFor(@"Paste", @selector(paste:), @"v")];
  [edit addItem:itemFor(@"Select All", @selector(selectAll:), @"a")];
  NSMenu* window = [[NSMenu alloc] initWithTitle:@"Window"];
  [window addItem:itemFor(@"Close", @selector(performClose:), @"w")];
  for (NSMenu* menu in [NSArray arrayWithObjects:quarl, edit, window, nil]) {
    NSMenuItem* holder = [[NSMenuItem alloc] initWithTitle:[menu title] action:nullptr keyEquivalent:@""];
    [holder setSubmenu:menu];
    [bar addItem:holder];
  }
  return bar;
}

}  // namespace

@implementation QuarlAppDelegate

// Only one copy ever runs: a second one brings the first forward and ends.
- (void)applicationWillFinishLaunching:(NSNotification*)notification {
  (void)notification;
  NSString* identifier = [[NSBundle mainBundle] bundleIdentifier] ?: quarl::nsString(quarl::bundleIdentifier);
  for (NSRunningApplication* running in [NSRunningApplication runningApplicationsWithBundleIdentifier:identifier]) {
    if ([running processIdentifier] != ::getpid()) {
      [running activateWithOptions:0];
      [NSApp terminate:nil];
      return;
    }
  }
  [NSApp setActivationPolicy:NSApplicationActivationPolicyRegular];
}

- (void)applicationDidFinishLaunching:(NSNotification*)notification {
  (void)notification;
  quarl::QuarlLog::install(std::make_shared<quarl::MacLogSink>());
  [NSApp setMainMenu:mainMenu()];
  application = std::make_unique<Application>();
  auto& app = *application;
  auto clock = std::make_shared<quarl::SystemClock>();
  auto host = std::make_shared<quarl::MacCompanionHost>();
  auto whatsappPage = std::make_shared<quarl::MacWhatsAppPage>(app.main);
  app.companion = quarl::Companion::create(quarl::CompanionParts{
      app.main, clock, std::make_shared<quarl::MacSettingsStore>(),
      std::make_shared<quarl::MacKeychain>(std::string(quarl::bundleIdentifier)),
      std::make_shared<quarl::BeastHttpTransport>(app.main), host, quarl::hostIdentity(),
      quarl::ChatDatabase::defaultPath(), std::make_shared<quarl::MacStoreWatcher>(app.main),
      macOperatorParts(host, clock), whatsappPage, app.windows, std::make_shared<quarl::MacLoginItem>(),
      std::make_shared<quarl::MacNapHold>(), std::make_shared<quarl::MacNotifications>(),
      std::make_shared<quarl::MacPicturePasteboard>(whatsappPage)});
  app.windows->attach(app.companion);
  app.menu = std::make_unique<quarl::MacStatusMenu>(app.companion, app.main, [] { [NSApp terminate:nil]; });
  quarl::MacNotifications::askToAllow([](bool) {});
  app.companion->start();
  app.companion->showMainWindow();
}

// The Dock icon pressed while running: the window the Mac's state calls for.
- (BOOL)applicationShouldHandleReopen:(NSApplication*)sender hasVisibleWindows:(BOOL)visible {
  (void)sender;
  if (!visible && application) application->companion->showMainWindow();
  return YES;
}

// A live run ends with "quit", and its report is given a moment to reach the service; the
// quit goes on after that moment whatever became of the report.
- (NSApplicationTerminateReply)applicationShouldTerminate:(NSApplication*)sender {
  (void)sender;
  if (!application || !application->companion) return NSTerminateNow;
  application->companion->stopTimers();
  if (!application->companion->liveRunId()) return NSTerminateNow;
  const auto& companion = application->companion;
  boost::asio::co_spawn(application->main, quarl::keptAlive(companion, companion->finishOperating(stopReportBound)),
                        [](std::exception_ptr) { quitOnce(); });
  NSArray* modes = [NSArray arrayWithObjects:NSDefaultRunLoopMode, NSModalPanelRunLoopMode, nil];
  [self performSelector:@selector(quitAfterTheReportsMoment)
             withObject:nil
             afterDelay:static_cast<double>(stopReportBound.count()) + 1.0
                inModes:modes];
  return NSTerminateLater;
}

- (void)quitAfterTheReportsMoment {
  quitOnce();
}

- (void)applicationWillTerminate:(NSNotification*)notification {
  (void)notification;
  application.reset();
}
@end

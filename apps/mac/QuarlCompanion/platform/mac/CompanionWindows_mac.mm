#include "CompanionWindows_mac.h"

#import <AppKit/AppKit.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <algorithm>
#include <functional>

#include "Companion.h"
#include "CompanionHost_mac.h"
#include "KeptAlive.h"
#include "PanelWindow_mac.h"
#include "SetupSteps.h"
#include "platform/mac/Text_mac.h"

namespace {

NSString* mark(quarl::CapabilityState state) {
  if (state == quarl::CapabilityState::granted) return @"✓";
  return state == quarl::CapabilityState::off ? @"○" : @"?";
}

constexpr CGFloat setupWidth = 560;
constexpr CGFloat rowHeight = 74;
constexpr CGFloat margin = 20;

}  // namespace

// The target of the setup window's buttons, each tagged with its step's position, and of the
// timer that keeps the window current while a pairing runs.
@interface QuarlSetupTarget : NSObject {
 @public
  std::function<void(int)> pressed;
  std::function<void()> tick;
}
- (void)press:(id)sender;
- (void)refresh:(NSTimer*)timer;
@end

@implementation QuarlSetupTarget
- (void)press:(id)sender {
  if (pressed) pressed(static_cast<int>([sender tag]));
}
- (void)refresh:(NSTimer*)timer {
  (void)timer;
  if (tick) tick();
}
@end

namespace quarl {

struct MacCompanionWindows::Setup {
  NSWindow* window = nil;
  QuarlSetupTarget* target = nil;
  NSTimer* timer = nil;
  std::vector<SetupStep> steps;
  std::optional<std::string> failure;  // why the last sign-in did not go through
  std::optional<std::string> drawnFailure;
};

MacCompanionWindows::MacCompanionWindows(boost::asio::any_io_executor executor)
    : executor_(std::move(executor)), setup_(new Setup) {
  setup_->target = [[QuarlSetupTarget alloc] init];
  setup_->target->pressed = [this](int step) { pressed(step); };
  setup_->target->tick = [this] {
    if ([setup_->window isVisible]) refreshSetupWindow();
  };
}

MacCompanionWindows::~MacCompanionWindows() {
  [setup_->timer invalidate];
  [setup_->window close];
  delete setup_;
}

void MacCompanionWindows::attach(std::weak_ptr<Companion> companion) { companion_ = std::move(companion); }

void MacCompanionWindows::showSetupWindow() {
  if (!setup_->window) {
    NSWindowStyleMask style = NSWindowStyleMaskTitled;
    style |= NSWindowStyleMaskClosable;
    setup_->window = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, setupWidth, 100)
                                                 styleMask:style
                                                   backing:NSBackingStoreBuffered
                                                     defer:NO];
    [setup_->window setTitle:@"Set up Quarl"];
    [setup_->window setReleasedWhenClosed:NO];
    setup_->timer = [NSTimer scheduledTimerWithTimeInterval:1.0
                                                     target:setup_->target
                                                   selector:@selector(refresh:)
                                                   userInfo:nil
                                                    repeats:YES];
  }
  refreshSetupWindow();
  [setup_->window center];
  [NSApp activate];
  [setup_->window makeKeyAndOrderFront:nil];
}

void MacCompanionWindows::refreshSetupWindow() {
  const auto companion = companion_.lock();
  if (!setup_->window || !companion) return;
  const auto steps = setupSteps(companion->setupFacts());
  // Redrawn only when something changed, so that a button under the pointer stays put.
  const auto same = [](const SetupStep& a, const SetupStep& b) {
    return a.title == b.title && a.why == b.why && a.state == b.state && a.button == b.button;
  };
  if (std::equal(steps.begin(), steps.end(), setup_->steps.begin(), setup_->steps.end(), same) &&
      setup_->failure == setup_->drawnFailure) {
    return;
  }
  setup_->steps = steps;
  setup_->drawnFailure = setup_->failure;

  const CGFloat footer = setup_->failure ? 56 : 16;
  const CGFloat height = margin + rowHeight * static_cast<CGFloat>(steps.size()) + footer;
  NSView* content = [[NSView alloc] initWithFrame:NSMakeRect(0, 0, setupWidth, height)];
  CGFloat top = height - margin;
  for (std::size_t index = 0; index < steps.size(); ++index) {
    const auto& step = steps[index];
    NSTextField* state = [NSTextField labelWithString:mark(step.state)];
    [state setFrame:NSMakeRect(margin, top - 22, 24, 20)];
    NSTextField* title = [NSTextField labelWithString:nsString(step.title)];
    [title setFont:[NSFont boldSystemFontOfSize:13]];
    [title setFrame:NSMakeRect(margin + 28, top - 22, 300, 20)];
    NSTextField* why = [NSTextField labelWithString:nsString(step.why)];
    [why setFont:[NSFont systemFontOfSize:11]];
    [[why cell] setWraps:YES];
    [why setFrame:NSMakeRect(margin + 28, top - rowHeight + 6, setupWidth - 2 * margin - 200, 46)];
    [content addSubview:state];
    [content addSubview:title];
    [content addSubview:why];
    if (!step.button.empty()) {
      NSButton* button = [NSButton buttonWithTitle:nsString(step.button) target:setup_->target action:@selector(press:)];
      [button setTag:static_cast<NSInteger>(index)];
      [button setFrame:NSMakeRect(setupWidth - margin - 170, top - 28, 170, 28)];
      [content addSubview:button];
    }
    top -= rowHeight;
  }
  if (setup_->failure) {
    NSTextField* failure = [NSTextField labelWithString:nsString(*setup_->failure)];
    [failure setTextColor:[NSColor systemRedColor]];
    [[failure cell] setWraps:YES];
    [failure setFrame:NSMakeRect(margin, 12, setupWidth - 2 * margin, 40)];
    [content addSubview:failure];
  }
  [setup_->window setContentView:content];
  [setup_->window setContentSize:NSMakeSize(setupWidth, height)];
}

void MacCompanionWindows::pressed(int index) {
  const auto companion = companion_.lock();
  if (!companion || index < 0 || static_cast<std::size_t>(index) >= setup_->steps.size()) return;
  const auto step = setup_->steps[static_cast<std::size_t>(index)];
  switch (step.action) {
    case SetupStep::Action::none:
      return;
    case SetupStep::Action::signIn:
      setup_->failure.reset();
      boost::asio::co_spawn(executor_, keptAlive(companion, companion->signInFromSetup()),
                            [this](std::exception_ptr, std::optional<std::string> failure) {
                              setup_->failure = std::move(failure);
                              refreshSetupWindow();
                            });
      redrawAfterPress();
      return;
    case SetupStep::Action::openPrivacyPane:
      MacCompanionHost::openPrivacyPane(step.privacyPane);
      return;
    case SetupStep::Action::openAtLogin:
      companion->startAtLogin();
      redrawAfterPress();
      return;
  }
}

// The window's buttons are replaced when it is drawn again, so it is drawn once the press that
// asked for it has returned, never under the button still sending its action.
void MacCompanionWindows::redrawAfterPress() {
  [setup_->target performSelector:@selector(refresh:) withObject:nil afterDelay:0];
}

std::shared_ptr<PanelView> MacCompanionWindows::openPanelWindow() {
  [setup_->window close];
  if (!panel_) {
    const auto weak = companion_;
    const auto executor = executor_;
    MacPanelView::Handlers handlers;
    handlers.signIn = [weak, executor] {
      if (auto companion = weak.lock()) {
        boost::asio::co_spawn(executor, keptAlive(companion, companion->signInFromPanel()), boost::asio::detached);
      }
    };
    handlers.sessionLapsed = [weak, executor] {
      if (auto companion = weak.lock()) {
        boost::asio::co_spawn(executor, keptAlive(companion, companion->remintPanelSession()), boost::asio::detached);
      }
    };
    handlers.pairingCode = [weak]() -> std::optional<std::string> {
      auto companion = weak.lock();
      return companion ? companion->pairingCode() : std::nullopt;
    };
    panel_ = std::make_shared<MacPanelView>(std::move(handlers));
  }
  panel_->bringUp();
  return panel_;
}

void MacCompanionWindows::closePanelWindow() {
  if (panel_) panel_->close();
}

}  // namespace quarl

#include "OperatorBar_mac.h"

#import <AppKit/AppKit.h>

// The Stop button's target: AppKit calls an object, the bar holds a function.
@interface QuarlBarStop : NSObject {
 @public
  std::function<void()> stop;
}
- (void)pressed:(id)sender;
@end

@implementation QuarlBarStop
- (void)pressed:(id)sender {
  (void)sender;
  if (stop) stop();
}
@end

namespace quarl {

struct MacOperatorBar::Panel {
  NSPanel* window = nil;
  QuarlBarStop* target = nil;
  bool shown = false;
};

namespace {

NSRect barFrame() {
  NSScreen* screen = [NSScreen mainScreen];
  const NSRect visible = screen ? [screen visibleFrame] : NSMakeRect(0, 0, 1440, 900);
  return NSMakeRect(NSMidX(visible) - MacOperatorBar::width / 2,
                    NSMaxY(visible) - MacOperatorBar::height - MacOperatorBar::margin, MacOperatorBar::width,
                    MacOperatorBar::height);
}

}  // namespace

MacOperatorBar::MacOperatorBar() : panel_(new Panel) {
  panel_->target = [[QuarlBarStop alloc] init];
  NSWindowStyleMask style = NSWindowStyleMaskBorderless;
  style |= NSWindowStyleMaskNonactivatingPanel;
  NSPanel* window = [[NSPanel alloc] initWithContentRect:barFrame()
                                               styleMask:style
                                                 backing:NSBackingStoreBuffered
                                                   defer:YES];
  [window setLevel:NSStatusWindowLevel];
  [window setFloatingPanel:YES];
  [window setHidesOnDeactivate:NO];
  [window setBecomesKeyOnlyIfNeeded:YES];
  NSWindowCollectionBehavior behaviour = NSWindowCollectionBehaviorCanJoinAllSpaces;
  behaviour |= NSWindowCollectionBehaviorStationary;
  [window setCollectionBehavior:behaviour];
  [window setAlphaValue:0];

  NSView* content = [window contentView];
  NSTextField* label = [NSTextField labelWithString:@"Quarl is operating this Mac"];
  [label setFrame:NSMakeRect(14, 11, 240, 18)];
  [content addSubview:label];
  NSButton* stop = [NSButton buttonWithTitle:@"Stop" target:panel_->target action:@selector(pressed:)];
  [stop setFrame:NSMakeRect(width - 84, 6, 72, 28)];
  [content addSubview:stop];
  panel_->window = window;
}

MacOperatorBar::~MacOperatorBar() {
  [panel_->window orderOut:nil];
  delete panel_;
}

void MacOperatorBar::show(const std::string& runId, std::function<void()> onStop) {
  (void)runId;
  panel_->target->stop = std::move(onStop);
  NSPanel* window = panel_->window;
  [window setFrame:barFrame() display:NO];
  [window orderFrontRegardless];
  [NSAnimationContext runAnimationGroup:^(NSAnimationContext* context) {
    [context setDuration:fadeSeconds];
    [[window animator] setAlphaValue:1];
  }
                      completionHandler:nil];
  panel_->shown = true;
}

void MacOperatorBar::hide() {
  if (!panel_->shown) return;
  panel_->shown = false;
  panel_->target->stop = nullptr;
  NSPanel* window = panel_->window;
  Panel* panel = panel_;
  [NSAnimationContext runAnimationGroup:^(NSAnimationContext* context) {
    [context setDuration:fadeSeconds];
    [[window animator] setAlphaValue:0];
  }
      completionHandler:^{
        // A bar shown again while it faded stays.
        if (!panel->shown) [window orderOut:nil];
      }];
}

bool MacOperatorBar::isShown() const { return panel_->shown && [panel_->window isVisible]; }

}  // namespace quarl

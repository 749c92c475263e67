#include "StatusMenu_mac.h"

#import <AppKit/AppKit.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <chrono>

#include "Companion.h"
#include "Alert_mac.h"
#include "CompanionMenu.h"
#include "KeptAlive.h"
#include "platform/mac/Text_mac.h"

namespace {

// How long the page stays up for a phone to scan its code.
constexpr std::chrono::seconds whatsappLinkBound{300};

}  // namespace

// The menu's delegate and the target of its items: the menu is rebuilt as it opens, and a
// press is handed back by the item's position in the list it was built from. It answers only
// menuNeedsUpdate:, the one delegate method it needs, so it does not claim the whole protocol.
@interface QuarlMenuTarget : NSObject {
 @public
  std::shared_ptr<quarl::Companion> companion;
  boost::asio::any_io_executor executor;
  std::function<void()> quit;
  std::vector<quarl::CompanionMenu::Item> items;
}
- (void)choose:(id)sender;
@end

@implementation QuarlMenuTarget
- (void)menuNeedsUpdate:(NSMenu*)menu {
  [menu removeAllItems];
  items = quarl::CompanionMenu::items(companion->status());
  for (std::size_t index = 0; index < items.size(); ++index) {
    const auto& entry = items[index];
    if (entry.separatorBefore) [menu addItem:[NSMenuItem separatorItem]];
    const bool acts = entry.action != quarl::CompanionMenu::Action::none;
    NSMenuItem* item = [[NSMenuItem alloc] initWithTitle:quarl::nsString(entry.title)
                                                  action:acts ? @selector(choose:) : nullptr
                                           keyEquivalent:@""];
    [item setTarget:acts ? self : nil];
    [item setEnabled:acts];
    [item setTag:static_cast<NSInteger>(index)];
    [item setState:entry.checked ? NSControlStateValueOn : NSControlStateValueOff];
    if (!entry.help.empty()) [item setToolTip:quarl::nsString(entry.help)];
    [menu addItem:item];
  }
}

- (void)choose:(id)sender {
  const auto index = static_cast<std::size_t>([sender tag]);
  if (index >= items.size()) return;
  const auto entry = items[index];
  using Action = quarl::CompanionMenu::Action;
  switch (entry.action) {
    case Action::none:
      break;
    case Action::openWindow:
      companion->showMainWindow();
      break;
    case Action::linkWhatsApp:
      boost::asio::co_spawn(
          executor,
          quarl::keptAlive(companion, companion->linkWhatsApp(whatsappLinkBound, [](std::string) -> boost::asio::awaitable<void> {
                             co_return;
                           })),
          boost::asio::detached);
      break;
    case Action::switchOperator:
      if (!companion->setOperatorAllowed(!entry.checked)) {
        quarl::tellLater("The setting could not be saved, so operator mode is unchanged.");
      }
      break;
    case Action::keepAwake:
      if (!companion->setKeepAwakeWhileWorking(!entry.checked)) {
        quarl::tellLater("The setting could not be saved, so Quarl still keeps the Mac awake as before.");
      }
      break;
    case Action::stopOperating:
      companion->stopOperating();
      break;
    case Action::chooseMode:
      boost::asio::co_spawn(executor, quarl::keptAlive(companion, companion->chooseMode(*entry.mode)),
                            [](std::exception_ptr, std::optional<std::string> sentence) {
                              if (sentence) quarl::tellLater(*sentence);
                            });
      break;
    case Action::checkForUpdates:
      quarl::tellLater(quarl::Companion::checkForUpdates());
      break;
    case Action::signOut:
      companion->signOut();
      break;
    case Action::quit:
      if (quit) quit();
      break;
  }
}
@end

namespace quarl {

struct MacStatusMenu::Item {
  NSStatusItem* statusItem = nil;
  NSMenu* menu = nil;
  QuarlMenuTarget* target = nil;
};

MacStatusMenu::MacStatusMenu(std::shared_ptr<Companion> companion, boost::asio::any_io_executor executor,
                             std::function<void()> quit)
    : item_(new Item) {
  item_->target = [[QuarlMenuTarget alloc] init];
  item_->target->companion = std::move(companion);
  item_->target->executor = std::move(executor);
  item_->target->quit = std::move(quit);
  item_->menu = [[NSMenu alloc] initWithTitle:@"Quarl"];
  [item_->menu setAutoenablesItems:NO];
  [item_->menu setDelegate:(id<NSMenuDelegate>)item_->target];
  item_->statusItem = [[NSStatusBar systemStatusBar] statusItemWithLength:NSVariableStatusItemLength];
  [[item_->statusItem button] setTitle:@"Quarl"];
  [item_->statusItem setMenu:item_->menu];
}

MacStatusMenu::~MacStatusMenu() {
  [[NSStatusBar systemStatusBar] removeStatusItem:item_->statusItem];
  delete item_;
}

}  // namespace quarl

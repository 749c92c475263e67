#include "StopHotKey_mac.h"

#include <Carbon/Carbon.h>

namespace quarl {

namespace {

OSStatus hotKeyPressed(EventHandlerCallRef, EventRef event, void* userData) {
  EventHotKeyID pressed{};
  if (GetEventParameter(event, kEventParamDirectObject, typeEventHotKeyID, nullptr, sizeof(pressed), nullptr,
                        &pressed) != noErr) {
    return eventNotHandledErr;
  }
  if (pressed.signature != MacStopHotKey::signature || pressed.id != MacStopHotKey::keyId) return eventNotHandledErr;
  static_cast<const MacStopHotKey*>(userData)->fire();
  return noErr;
}

}  // namespace

MacStopHotKey::~MacStopHotKey() { unregister(); }

void MacStopHotKey::fire() const {
  if (pressed_) pressed_();
}

void MacStopHotKey::unregister() {
  if (hotKey_) UnregisterEventHotKey(static_cast<EventHotKeyRef>(hotKey_));
  if (handler_) RemoveEventHandler(static_cast<EventHandlerRef>(handler_));
  hotKey_ = nullptr;
  handler_ = nullptr;
}

std::optional<std::string> MacStopHotKey::registerKeys(std::function<void()> pressed) {
  unregister();
  pressed_ = std::move(pressed);
  const EventTypeSpec keyPressed{kEventClassKeyboard, kEventHotKeyPressed};
  EventHandlerRef handler = nullptr;
  if (InstallEventHandler(GetApplicationEventTarget(), NewEventHandlerUPP(hotKeyPressed), 1, &keyPressed, this,
                          &handler) != noErr) {
    return "macOS did not let Quarl listen for its Stop keys.";
  }
  handler_ = handler;
  EventHotKeyRef hotKey = nullptr;
  const EventHotKeyID id{signature, keyId};
  const OSStatus registered =
      RegisterEventHotKey(periodKeyCode, controlOptionCommand, id, GetApplicationEventTarget(), 0, &hotKey);
  if (registered != noErr) {
    unregister();
    return "Control-Option-Command-period is taken by another app, so it cannot stop Quarl.";
  }
  hotKey_ = hotKey;
  return std::nullopt;
}

}  // namespace quarl

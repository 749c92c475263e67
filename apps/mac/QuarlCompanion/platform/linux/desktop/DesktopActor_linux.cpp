#include "DesktopActor_linux.h"

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <gio/gdesktopappinfo.h>

#include "ActPolicy.h"
#include "AtspiCalls_linux.h"

namespace quarl {

namespace {

using atspi::accessibleOf;
using atspi::Error;
using atspi::hasState;

KeySym keySymOf(std::string_view key) {
  static constexpr std::pair<std::string_view, KeySym> named[] = {
      {"return", XK_Return}, {"enter", XK_KP_Enter},   {"tab", XK_Tab},     {"escape", XK_Escape},
      {"space", XK_space},   {"delete", XK_BackSpace}, {"forward_delete", XK_Delete},
      {"up", XK_Up},         {"down", XK_Down},        {"left", XK_Left},   {"right", XK_Right},
      {"home", XK_Home},     {"end", XK_End},          {"page_up", XK_Prior}, {"page_down", XK_Next}};
  for (const auto& [name, sym] : named) {
    if (name == key) return sym;
  }
  return XStringToKeysym(std::string(key).c_str());
}

// Command is the Mac's key for shortcuts; Control plays that part here. Nothing maps to Super,
// which the stop keys hold, so a step cannot make them even before the stop-keys check.
KeySym modifierSymOf(std::string_view modifier) {
  if (modifier == "option") return XK_Alt_L;
  if (modifier == "shift") return XK_Shift_L;
  return XK_Control_L;
}

}  // namespace

bool DesktopActor::canPostEvents(X11Windows& windows) {
  const std::lock_guard held(windows.lock());
  int event = 0, error = 0, major = 0, minor = 0;
  return XTestQueryExtension(windows.display(), &event, &error, &major, &minor);
}

std::optional<std::string> DesktopActor::press(const AXElement& element, std::string_view app) {
  const bool done = thread_.call([&] {
    AtspiAction* action = atspi_accessible_get_action_iface(accessibleOf(element));
    if (!action) return false;
    Error error;
    const int count = atspi_action_get_n_actions(action, &error);
    int chosen = count > 0 ? 0 : -1;
    for (int i = 0; i < count; ++i) {
      Error nameError;
      gchar* name = atspi_action_get_action_name(action, i, &nameError);
      const bool pressing = name && (g_str_equal(name, "click") || g_str_equal(name, "press") || g_str_equal(name, "activate"));
      g_free(name);
      if (pressing) {
        chosen = i;
        break;
      }
    }
    Error doError;
    const bool pressed = chosen >= 0 && atspi_action_do_action(action, chosen, &doError);
    g_object_unref(action);
    return pressed;
  });
  if (!done) return ActPolicy::wouldNotPressSentence(app);
  return std::nullopt;
}

// Into a field, the text goes in at the caret through the field itself. A control that is no
// field takes it as keys, once it holds the focus: keys go wherever the focus is, and that must be
// the control the rules let through.
std::optional<std::string> DesktopActor::type(const AXElement& element, std::string_view text,
                                              const RunningApp& app) {
  enum class Typed { inserted, refused, needsKeys };
  const auto typed = thread_.call([&] {
    auto* accessible = accessibleOf(element);
    if (AtspiComponent* component = atspi_accessible_get_component_iface(accessible)) {
      Error ignored;
      atspi_component_grab_focus(component, &ignored);
      g_object_unref(component);
    }
    AtspiEditableText* editable = atspi_accessible_get_editable_text_iface(accessible);
    if (!editable) return hasState(accessible, ATSPI_STATE_FOCUSED) ? Typed::needsKeys : Typed::refused;
    int caret = -1;
    if (AtspiText* shown = atspi_accessible_get_text_iface(accessible)) {
      Error ignored;
      caret = atspi_text_get_caret_offset(shown, &ignored);
      g_object_unref(shown);
    }
    Error error;
    const std::string copy(text);
    const bool inserted = atspi_editable_text_insert_text(editable, std::max(caret, 0), copy.c_str(),
                                                          static_cast<gint>(copy.size()), &error);
    g_object_unref(editable);
    return inserted && !error ? Typed::inserted : Typed::refused;
  });
  if (typed == Typed::needsKeys) return typeAsKeys(text, app);
  if (typed == Typed::refused) return wouldNotTypeSentence(app.name);
  return std::nullopt;
}

std::optional<std::string> DesktopActor::typeAsKeys(std::string_view text, const RunningApp& app) {
  if (windows_->activeProcess() != app.processId) return ActPolicy::notInFrontSentence(app.name);
  const bool typed = thread_.call(
      [&] { return atspi_generate_keyboard_event(0, std::string(text).c_str(), ATSPI_KEY_STRING, nullptr); });
  return typed ? std::nullopt : std::optional(wouldNotTypeSentence(app.name));
}

// X11 has no way to send keys to one process: they go to the window with the focus. So the app
// is checked in front once more right before, and the keys follow at once.
std::optional<std::string> DesktopActor::key(const RunningApp& app, std::string_view key,
                                             const std::vector<std::string>& modifiers) {
  if (windows_->activeProcess() != app.processId) return ActPolicy::notInFrontSentence(app.name);
  const KeySym sym = keySymOf(key);
  const std::lock_guard held(windows_->lock());
  Display* display = windows_->display();
  const KeyCode code = sym == NoSymbol ? 0 : XKeysymToKeycode(display, sym);
  if (code == 0) return std::string(ActPolicy::unknownKeySentence);
  std::vector<KeyCode> held_down;
  for (const auto& modifier : modifiers) {
    const KeyCode modifierCode = XKeysymToKeycode(display, modifierSymOf(modifier));
    if (modifierCode == 0) {
      for (auto it = held_down.rbegin(); it != held_down.rend(); ++it) XTestFakeKeyEvent(display, *it, False, CurrentTime);
      XSync(display, False);
      return std::string(ActPolicy::unknownKeySentence);
    }
    XTestFakeKeyEvent(display, modifierCode, True, CurrentTime);
    held_down.push_back(modifierCode);
  }
  XTestFakeKeyEvent(display, code, True, CurrentTime);
  XTestFakeKeyEvent(display, code, False, CurrentTime);
  for (auto it = held_down.rbegin(); it != held_down.rend(); ++it) XTestFakeKeyEvent(display, *it, False, CurrentTime);
  XSync(display, False);
  return std::nullopt;
}

std::vector<std::string> DesktopActor::heldAs(const std::vector<std::string>& modifiers) const {
  auto held = modifiers;
  for (auto& modifier : held) {
    if (modifier == "control") modifier = "command";
  }
  return held;
}

std::optional<std::string> DesktopActor::scroll(const RunningApp& app, std::string_view direction,
                                                std::int64_t amount) {
  const auto window = app.processId ? windows_->frontWindowOf(*app.processId) : std::nullopt;
  if (!window) return ActPolicy::noWindowToScrollSentence(app.name);
  const unsigned button = direction == "up" ? 4 : direction == "down" ? 5 : direction == "left" ? 6 : 7;
  const std::lock_guard held(windows_->lock());
  Display* display = windows_->display();
  if (!XTestFakeMotionEvent(display, DefaultScreen(display), window->rect.x + window->rect.width / 2,
                            window->rect.y + window->rect.height / 2, CurrentTime)) {
    return std::string(ActPolicy::scrollFailedSentence);
  }
  for (std::int64_t i = 0; i < amount; ++i) {
    XTestFakeButtonEvent(display, button, True, CurrentTime);
    XTestFakeButtonEvent(display, button, False, CurrentTime);
  }
  XSync(display, False);
  return std::nullopt;
}

// An app that starts through D-Bus, or hands over to a copy already running, has no process of
// this launch to follow, so the caller waits for the app by name.
std::optional<std::string> DesktopActor::openApp(std::string_view name) {
  GDesktopAppInfo* found = nullptr;
  GList* all = g_app_info_get_all();
  for (GList* item = all; item && !found; item = item->next) {
    auto* info = G_APP_INFO(item->data);
    if (G_IS_DESKTOP_APP_INFO(info) && g_ascii_strcasecmp(g_app_info_get_name(info), std::string(name).c_str()) == 0) {
      found = G_DESKTOP_APP_INFO(g_object_ref(info));
    }
  }
  g_list_free_full(all, g_object_unref);
  if (!found) return ActPolicy::notOnThisMacSentence(name);
  Error error;
  // The companion keeps itself out of the accessibility tree; the apps it opens must not be.
  GAppLaunchContext* context = g_app_launch_context_new();
  g_app_launch_context_unsetenv(context, "NO_AT_BRIDGE");
  const bool started = g_desktop_app_info_launch_uris_as_manager(found, nullptr, context, G_SPAWN_SEARCH_PATH,
                                                                 nullptr, nullptr, nullptr, nullptr, &error);
  g_object_unref(context);
  g_object_unref(found);
  if (!started) return ActPolicy::couldNotOpenSentence(name);
  return std::nullopt;
}

}  // namespace quarl

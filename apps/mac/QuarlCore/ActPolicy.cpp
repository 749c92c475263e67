#include "ActPolicy.h"

#include <algorithm>
#include <boost/regex.hpp>

#include "MacKeyCodes.h"
#include "Trimmed.h"
#include "Utf16Text.h"

namespace quarl {

namespace {

constexpr std::size_t quotedMax = 80;

std::string lowered(std::string_view text) {
  std::string lower(trimmed(text));
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  return lower;
}

template <std::size_t N>
bool contains(const std::string_view (&list)[N], std::string_view item) {
  return std::find(std::begin(list), std::end(list), item) != std::end(list);
}

bool has(const std::vector<std::string>& modifiers, std::string_view modifier) {
  return std::find(modifiers.begin(), modifiers.end(), modifier) != modifiers.end();
}

std::string keyName(std::string_view key) {
  static constexpr std::pair<std::string_view, std::string_view> spoken[] = {
      {"return", "Return"},   {"enter", "Enter"},       {"tab", "Tab"},
      {"escape", "Escape"},   {"space", "Space"},       {"delete", "Delete"},
      {"forward_delete", "Forward Delete"},             {"up", "Up Arrow"},
      {"down", "Down Arrow"}, {"left", "Left Arrow"},   {"right", "Right Arrow"},
      {"home", "Home"},       {"end", "End"},           {"page_up", "Page Up"},
      {"page_down", "Page Down"}};
  for (const auto& [name, words] : spoken) {
    if (name == key) return std::string(words);
  }
  std::string upper(key);
  std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return std::toupper(c); });
  return upper;
}

bool hasLineEnd(std::string_view text) { return text.find_first_of("\r\n") != std::string_view::npos; }

bool hasOtherKey(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) { return (c >= 0 && c < 0x20) || c == 0x7f; });
}

// Typing with no control named goes wherever the focus is, and the owner is told so.
std::string endedForFocus(std::string sentence, bool elementNamed) {
  if (elementNamed) return sentence;
  sentence.pop_back();
  return sentence + ", wherever the focus is.";
}

std::optional<std::string> holdKey(const OperatorStepRequest::Key& step, const std::string& app,
                                   const std::optional<std::string>& frontBundleId) {
  static constexpr std::string_view commandHeld[] = {"delete", "forward_delete", "return", "enter", "d"};
  const bool commanded = has(step.modifiers, "command") && contains(commandHeld, step.key);
  const bool returning = (step.key == "return" || step.key == "enter") && !ActPolicy::returnIsSafe(app, frontBundleId);
  if (!commanded && !returning) return std::nullopt;
  return "Press " + ActPolicy::keyWords(step.key, step.modifiers) + " in " + app + ".";
}

std::optional<std::string> holdTyping(const OperatorStepRequest::TypeText& step, const std::optional<ActTarget>& target,
                                      const std::string& app, const std::optional<std::string>& frontBundleId) {
  if (ActPolicy::returnIsSafe(app, frontBundleId)) return std::nullopt;
  const auto quoted = ActPolicy::quote(step.text);
  if (target && target->role && contains(ActPolicy::pressedNotTypedRoles, *target->role)) {
    const auto name = target->name();
    return "Type " + quoted + " into " + (name ? ActPolicy::quote(*name) : std::string("a control")) + " in " + app +
           ", which is not a field.";
  }
  const bool named = step.element.has_value();
  if (hasLineEnd(step.text)) return endedForFocus("Type " + quoted + " in " + app + " and press Return.", named);
  if (!hasOtherKey(step.text)) return std::nullopt;
  const bool onlyTabs = std::none_of(step.text.begin(), step.text.end(), [](char c) { return c != '\t' && hasOtherKey({&c, 1}); });
  return endedForFocus("Type " + quoted + " in " + app + (onlyTabs ? ", with Tab between." : ", with a key inside it."), named);
}

std::optional<std::string> holdPress(const std::optional<ActTarget>& target, const std::string& app) {
  if (!target) return std::nullopt;
  if (const auto name = target->name()) {
    if (!ActPolicy::soundsConsequential(*name) && !contains(ActPolicy::confirmingLabels, lowered(*name))) {
      return std::nullopt;
    }
    return "Press " + ActPolicy::quote(*name) + " in " + app + ".";
  }
  // A control with no name in a window or dialog that speaks of sending, buying or deleting is
  // as likely as any to be the one that does it.
  const bool consequentialPlace = (target->dialogText && ActPolicy::soundsConsequential(*target->dialogText)) ||
                                  (target->windowTitle && ActPolicy::soundsConsequential(*target->windowTitle));
  if (!consequentialPlace) return std::nullopt;
  return "Press a control with no name in " + app + ".";
}

}  // namespace

std::optional<std::string> ActTarget::name() const {
  for (const auto* part : {&title, &label}) {
    if (*part && !trimmed(**part).empty()) return std::string(trimmed(**part));
  }
  return std::nullopt;
}

bool ActTarget::isSecure() const { return role == "AXSecureTextField" || subrole == "AXSecureTextField"; }

std::optional<std::string> ActPolicy::hold(const OperatorStepRequest& request, const std::optional<ActTarget>& target,
                                           const std::optional<std::string>& frontBundleId) {
  const auto app = request.actApp();
  if (!app) return std::nullopt;
  if (const auto* key = std::get_if<OperatorStepRequest::Key>(&request.value)) return holdKey(*key, *app, frontBundleId);
  if (const auto* typing = std::get_if<OperatorStepRequest::TypeText>(&request.value)) {
    return holdTyping(*typing, target, *app, frontBundleId);
  }
  if (std::holds_alternative<OperatorStepRequest::PressElement>(request.value)) return holdPress(target, *app);
  return std::nullopt;
}

bool ActPolicy::isFront(std::string_view app, const std::optional<RunningApp>& front) {
  if (!front) return false;
  const auto wanted = lowered(app);
  return wanted == lowered(front->name) || (front->bundleId && wanted == lowered(*front->bundleId));
}

std::string ActPolicy::notInFrontSentence(std::string_view app) {
  return std::string(app) + " is not in front any more, so nothing was done.";
}

std::string ActPolicy::staleControlSentence(std::string_view app) {
  return "That control is from an older read of " + std::string(app) + ", so nothing was pressed. Read it again first.";
}

std::string ActPolicy::keyWords(std::string_view key, const std::vector<std::string>& modifiers) {
  static constexpr std::pair<std::string_view, std::string_view> order[] = {
      {"control", "Control"}, {"option", "Option"}, {"shift", "Shift"}, {"command", "Command"}};
  std::string words;
  for (const auto& [modifier, spoken] : order) {
    if (has(modifiers, modifier)) words += std::string(spoken) + "-";
  }
  return words + keyName(key);
}

bool ActPolicy::returnIsSafe(std::string_view app, const std::optional<std::string>& bundleId) {
  return contains(returnSafeApps, lowered(app)) || (bundleId && contains(returnSafeApps, lowered(*bundleId)));
}

bool ActPolicy::soundsConsequential(std::string_view text) {
  static const boost::regex pattern(std::string(consequentialPattern), boost::regex::perl | boost::regex::icase);
  return boost::regex_search(text.begin(), text.end(), pattern);
}

std::string ActPolicy::quote(std::string_view text) {
  auto shown = graphemeCount(text) > quotedMax ? graphemePrefix(text, quotedMax) + "…" : std::string(text);
  return "“" + shown + "”";
}

std::string ActPolicy::notOnThisMacSentence(std::string_view app) { return std::string(app) + " is not on this Mac."; }
std::string ActPolicy::couldNotOpenSentence(std::string_view app) { return std::string(app) + " could not be opened."; }
std::string ActPolicy::openedNotFrontSentence(std::string_view app) {
  return std::string(app) + " opened but did not come to the front, so nothing more was done.";
}
std::string ActPolicy::wouldNotPressSentence(std::string_view app) {
  return "That control in " + std::string(app) + " would not press.";
}
std::string ActPolicy::noWindowToScrollSentence(std::string_view app) {
  return std::string(app) + " has no window to scroll.";
}

std::string ActPolicy::notAControlSentence(std::string_view app) {
  return "That is not a control of " + std::string(app) + " that Quarl can work, so nothing was done.";
}

std::string ActPolicy::noFocusSentence(std::string_view app) {
  return std::string(app) + " does not say where its focus is, so nothing was typed.";
}

}  // namespace quarl

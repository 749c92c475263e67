#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ActTarget.h"
#include "OperatorStepOutcome.h"
#include "OperatorStepRequest.h"

namespace quarl {

// Which acts wait for the owner's press, and the sentences of the checks made before any act.
// An act that could send, submit, buy or delete is held with a sentence saying exactly what
// would be done; everything is done only to the app in front.
struct ActPolicy {
  static constexpr std::string_view consequentialPattern =
      "\\b(send|sent|submit|buy|purchase|pay|payment|order|checkout|check out|place order|delete|remove|trash|"
      "erase|discard|empty|post|publish|tweet|reply|forward|confirm|transfer|book|reserve|subscribe|unsubscribe|"
      "sign|approve|accept|install|uninstall|share|invite|donate|withdraw|deposit|wire)\\b";
  static constexpr std::string_view confirmingLabels[] = {"ok",    "yes",   "continue", "done",   "confirm",
                                                          "allow", "agree", "i agree",  "proceed"};
  static constexpr std::string_view returnSafeApps[] = {
      "notes",           "textedit",           "pages",                 "microsoft word",     "stickies",
      "com.apple.notes", "com.apple.textedit", "com.apple.iwork.pages", "com.microsoft.word", "com.apple.stickies"};
  static constexpr std::string_view pressedNotTypedRoles[] = {
      "AXButton", "AXLink",        "AXMenuItem", "AXMenuButton", "AXPopUpButton",  "AXCheckBox",
      "AXRadioButton", "AXMenuBarItem", "AXTab", "AXDisclosureTriangle", "AXIncrementor", "AXSlider"};

  static constexpr std::string_view noAppSentence = "That act names no app.";
  static constexpr std::string_view accessibilityOffSentence = "Accessibility is off for Quarl, so it cannot click or type.";
  static constexpr std::string_view restartSentence = "Quarl needs to be restarted on the Mac before it can click or type.";
  static constexpr std::string_view secureFieldSentence = "Quarl never types into a password field.";
  static constexpr std::string_view stopKeysSentence = "Quarl never presses its own Stop keys.";
  static constexpr std::string_view unknownKeySentence = "Quarl does not know that key, so it pressed nothing.";
  static constexpr std::string_view otherPressSentence = "That press was for a different act, so nothing was done.";
  static constexpr std::string_view scrollFailedSentence = "The scroll could not be made.";

  // A sentence when the step waits for the owner's press; none when it runs at once.
  // `frontBundleId` is the bundle identifier (or, off the Mac, the desktop id) of the app in
  // front; `target` the control the step names, when it names one.
  static std::optional<std::string> hold(const OperatorStepRequest& request, const std::optional<ActTarget>& target,
                                         const std::optional<std::string>& frontBundleId);

  // Whether `app` names the front app, by its name or its bundle identifier, in any case.
  static bool isFront(std::string_view app, const std::optional<RunningApp>& front);
  static std::string notInFrontSentence(std::string_view app);
  static std::string staleControlSentence(std::string_view app);
  // An id of the current read that names a text or a group, not a control.
  static std::string notAControlSentence(std::string_view app);
  // "Command-Shift-D", "Return", "Control-Page Up".
  static std::string keyWords(std::string_view key, const std::vector<std::string>& modifiers);
  // Return only makes a new line in these apps; elsewhere it may send.
  static bool returnIsSafe(std::string_view app, const std::optional<std::string>& bundleId);
  // Whether a control's name or typed text is of the kind that sends, submits, buys or deletes.
  static bool soundsConsequential(std::string_view text);
  // The text in curly quotes, shortened to 80 characters.
  static std::string quote(std::string_view text);

  // Sentences of the acts themselves, for the platform to answer with.
  static std::string notOnThisMacSentence(std::string_view app);
  static std::string couldNotOpenSentence(std::string_view app);
  static std::string openedNotFrontSentence(std::string_view app);
  static std::string wouldNotPressSentence(std::string_view app);
  static std::string noWindowToScrollSentence(std::string_view app);
  // Typing that names no control goes where the focus is; when the app cannot say where that
  // is, it could be a password field, so nothing is typed.
  static std::string noFocusSentence(std::string_view app);
};

}  // namespace quarl

#include "SetupSteps.h"

namespace quarl {

namespace {

CapabilityState doneWhen(bool done) { return done ? CapabilityState::granted : CapabilityState::off; }

SetupStep privacyStep(std::string title, std::string why, CapabilityState state, std::string pane) {
  const bool granted = state == CapabilityState::granted;
  return {std::move(title), std::move(why), state, granted ? "" : "Open System Settings",
          granted ? SetupStep::Action::none : SetupStep::Action::openPrivacyPane, std::move(pane)};
}

}  // namespace

std::vector<SetupStep> setupSteps(const SetupFacts& facts) {
  using Action = SetupStep::Action;
  std::vector<SetupStep> steps;
  if (facts.pairingCode) {
    steps.push_back({"Sign in", "Approve the code " + *facts.pairingCode + " in your browser to link this Mac.",
                     CapabilityState::off, "", Action::none, ""});
  } else {
    steps.push_back({"Sign in",
                     "Links this Mac to your Quarl account. You approve a code in your browser; nobody types a "
                     "password here.",
                     doneWhen(facts.signedIn), facts.signedIn ? "" : "Sign In…",
                     facts.signedIn ? Action::none : Action::signIn, ""});
  }
  steps.push_back(privacyStep("Full Disk Access",
                              "Lets Quarl read your iMessage and SMS conversations from the Messages store. Quit and "
                              "reopen Quarl after you switch it on.",
                              doneWhen(facts.canReadMessages), "Privacy_AllFiles"));
  steps.push_back(privacyStep("Automation of Messages",
                              "Lets Quarl send the messages you ask for through Messages. macOS asks you the first "
                              "time Quarl sends one.",
                              CapabilityState::unknown, "Privacy_Automation"));
  steps.push_back(privacyStep("Accessibility",
                              "Lets Quarl read and press what is on the screen when you let it operate this Mac.",
                              facts.accessibility, "Privacy_Accessibility"));
  steps.push_back(privacyStep("Screen Recording",
                              "Lets Quarl see the screen when you let it operate this Mac.", facts.screenRecording,
                              "Privacy_ScreenCapture"));
  steps.push_back({"Notifications",
                   "Tells you when something is waiting for you in Quarl. macOS asks you the first time.",
                   CapabilityState::unknown, "", Action::none, ""});
  steps.push_back({"Open at login",
                   "Quarl can only read new iMessages while it is running. If it is not open, replies you send from "
                   "your phone wait until it is.",
                   doneWhen(facts.opensAtLogin), facts.opensAtLogin ? "" : "Open at Login",
                   facts.opensAtLogin ? Action::none : Action::openAtLogin, ""});
  return steps;
}

}  // namespace quarl

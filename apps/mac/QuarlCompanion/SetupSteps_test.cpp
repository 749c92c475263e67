#include "SetupSteps.h"

#include <gmock/gmock.h>

namespace quarl {
namespace {

using Action = SetupStep::Action;

std::vector<std::string> pressable(const std::vector<SetupStep>& steps) {
  std::vector<std::string> titles;
  for (const auto& step : steps) {
    if (step.action != Action::none) titles.push_back(step.title + " → " + step.button);
  }
  return titles;
}

TEST(SetupSteps, EachStepOffersItsButtonUntilItIsDoneAndThePairingCodeStandsInForSignIn) {
  const auto fresh = setupSteps({});
  EXPECT_THAT(pressable(fresh),
              ::testing::ElementsAre("Sign in → Sign In…", "Full Disk Access → Open System Settings",
                                     "Automation of Messages → Open System Settings",
                                     "Accessibility → Open System Settings", "Screen Recording → Open System Settings",
                                     "Open at login → Open at Login"));
  EXPECT_EQ(fresh[1].privacyPane, "Privacy_AllFiles");
  EXPECT_EQ(fresh[4].privacyPane, "Privacy_ScreenCapture");
  EXPECT_EQ(fresh[2].state, CapabilityState::unknown) << "macOS says nothing of Automation without asking the owner";

  SetupFacts pairing;
  pairing.pairingCode = "QRL-1001";
  const auto whilePairing = setupSteps(pairing);
  EXPECT_EQ(whilePairing[0].why, "Approve the code QRL-1001 in your browser to link this Mac.");
  EXPECT_EQ(whilePairing[0].action, Action::none) << "a second pairing would start nothing";

  const SetupFacts ready{true, std::nullopt, true, CapabilityState::granted, CapabilityState::granted, true};
  const auto done = setupSteps(ready);
  EXPECT_THAT(pressable(done), ::testing::ElementsAre("Automation of Messages → Open System Settings"));
  EXPECT_EQ(done[0].state, CapabilityState::granted);
  EXPECT_EQ(done[6].state, CapabilityState::granted);
}

}  // namespace
}  // namespace quarl

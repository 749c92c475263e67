#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "MacCapabilityClass.h"
#include "OperatorCaps.h"

namespace quarl {

// Which operator run is live and which runs the owner stopped on this Mac. Called from any
// thread; every operation holds the lock for its whole length.
class OperatorSession {
 public:
  // What the Mac allows at this moment; a capability not known counts as not granted.
  struct Conditions {
    bool switchOn = false;
    bool accessibility = false;
    bool screenRecording = false;
    bool signedIn = false;
    bool unlockedAtScreen = false;
    bool postEvent = false;
    bool fullDiskAccess = false;
    bool folderConsent = false;
    bool displayAsleep = false;
    bool keepAwake = false;

    static Conditions from(const OperatorCaps& caps, bool signedIn);
  };

  enum class NotReady {
    switchedOff,
    noAccessibility,
    noScreenRecording,
    signedOut,
    lockedOrAway,
    cannotPostEvents,
    noFullDiskAccess,
    displayAsleep
  };

  // The reasons that keep `klass` from running under `conditions`, in the order above. The one
  // table of what each class needs lives in the implementation.
  static std::vector<NotReady> blockers(MacCapabilityClass klass, const Conditions& conditions);
  static std::optional<std::string> refusalSentence(MacCapabilityClass klass, const Conditions& conditions);
  // The refusal that means the Mac cannot be operated at all; a run that meets it ends.
  static constexpr std::string_view notOperableSentence =
      "This Mac could not be operated when the step arrived (switched off, locked, or a permission removed), so "
      "nothing was done.";

  // True when `runId` became the live run; a stopped run is never begun again.
  bool begin(const std::string& runId);
  // None when the step may run; else the sentence of its refusal.
  std::optional<std::string> admit(const std::string& runId, MacCapabilityClass klass, bool indicatorShown,
                                   const Conditions& conditions);
  // Ends the live run for good; the run that was live, if any.
  std::optional<std::string> stop();
  // The service ended `runId`: it is no longer live, and may not be stopped by this Mac.
  void ended(const std::string& runId);
  std::optional<std::string> liveRunId() const;
  // Whether the owner stopped `runId` on this Mac.
  bool isStopped(const std::string& runId) const;

  // The wire names of the classes ready now, in a fixed order; the unadvertised class never.
  static std::vector<std::string> can(const Conditions& conditions);
  // The same, left to the classes `serves` accepts: what this Mac can carry out at all.
  static std::vector<std::string> can(const Conditions& conditions,
                                      const std::function<bool(MacCapabilityClass)>& serves);
  static bool mayPoll(const Conditions& conditions);

 private:
  mutable std::mutex mutex_;
  std::optional<std::string> live_;
  std::set<std::string> stopped_;
};

}  // namespace quarl

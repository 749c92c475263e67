#include "OperatorSession.h"

#include <algorithm>

namespace quarl {

namespace {

using NotReady = OperatorSession::NotReady;
using Conditions = OperatorSession::Conditions;

// What each class of step needs of the Mac: the one table behind "can", admission and the
// readiness line. Files need a way into the owner's folders (Full Disk Access, or the folders
// consented to one by one) but no screen, so a locked Mac still finds and reads files. Looking
// needs Screen Recording; acting needs Accessibility and the right to post events; both need a
// Mac unlocked at its screen. A sleeping display stops looking and acting unless the owner lets
// Quarl keep the Mac awake, since then the link wakes the display first.
struct Needs {
  MacCapabilityClass klass;
  bool fileAccess;
  bool screenRecording;
  bool accessibility;
  bool postEvents;
  bool unlocked;
  bool awakeDisplay;
};

constexpr Needs needsTable[] = {
    //                                  files  screen  access  events  unlocked  awake
    {MacCapabilityClass::files,         true,  false,  false,  false,  false,    false},
    {MacCapabilityClass::screen,        false, true,   false,  false,  true,     true},
    {MacCapabilityClass::act,           false, false,  true,   true,   true,     true},
    {MacCapabilityClass::unadvertised,  true,  true,   true,   true,   true,     true},
    {MacCapabilityClass::consequential, false, false,  true,   true,   true,     true},
};

const Needs& needsOf(MacCapabilityClass klass) {
  return *std::find_if(std::begin(needsTable), std::end(needsTable), [klass](const Needs& row) { return row.klass == klass; });
}

bool has(const std::vector<NotReady>& reasons, NotReady reason) {
  return std::find(reasons.begin(), reasons.end(), reason) != reasons.end();
}

bool granted(CapabilityState state) { return state == CapabilityState::granted; }

}  // namespace

Conditions Conditions::from(const OperatorCaps& caps, bool signedIn) {
  return {.switchOn = caps.switchOn,
          .accessibility = granted(caps.accessibility),
          .screenRecording = granted(caps.screenRecording) && !caps.osTooOld,
          .signedIn = signedIn,
          .unlockedAtScreen = granted(caps.unlockedAtScreen),
          .postEvent = granted(caps.postEvents),
          .fullDiskAccess = granted(caps.fullDiskAccess),
          .folderConsent = caps.folderConsent,
          .displayAsleep = caps.displaysAsleep,
          .keepAwake = caps.keepAwake};
}

std::vector<NotReady> OperatorSession::blockers(MacCapabilityClass klass, const Conditions& c) {
  const auto& needs = needsOf(klass);
  std::vector<NotReady> reasons;
  if (!c.switchOn) reasons.push_back(NotReady::switchedOff);
  if (needs.accessibility && !c.accessibility) reasons.push_back(NotReady::noAccessibility);
  if (needs.screenRecording && !c.screenRecording) reasons.push_back(NotReady::noScreenRecording);
  if (!c.signedIn) reasons.push_back(NotReady::signedOut);
  if (needs.unlocked && !c.unlockedAtScreen) reasons.push_back(NotReady::lockedOrAway);
  if (needs.postEvents && !c.postEvent) reasons.push_back(NotReady::cannotPostEvents);
  if (needs.fileAccess && !c.fullDiskAccess && !c.folderConsent) reasons.push_back(NotReady::noFullDiskAccess);
  if (needs.awakeDisplay && c.displayAsleep && !c.keepAwake) reasons.push_back(NotReady::displayAsleep);
  return reasons;
}

std::optional<std::string> OperatorSession::refusalSentence(MacCapabilityClass klass, const Conditions& conditions) {
  const auto reasons = blockers(klass, conditions);
  if (reasons.empty()) return std::nullopt;
  if (has(reasons, NotReady::switchedOff) || has(reasons, NotReady::signedOut)) {
    return std::string(notOperableSentence);
  }
  if (has(reasons, NotReady::lockedOrAway)) {
    return "The Mac is locked, so Quarl did not look, click or type. It can still find and read files.";
  }
  if (std::all_of(reasons.begin(), reasons.end(), [](NotReady r) { return r == NotReady::displayAsleep; })) {
    return "The Mac's display is asleep, so Quarl did not look, click or type. Turn on “Keep my Mac awake while Quarl "
           "works” in the Quarl menu to let it wake the display.";
  }
  std::vector<std::string> names;
  for (const auto reason : reasons) {
    if (reason == NotReady::noAccessibility) names.emplace_back("Accessibility");
    if (reason == NotReady::noScreenRecording) names.emplace_back("Screen Recording");
    if (reason == NotReady::noFullDiskAccess) names.emplace_back("Full Disk Access");
  }
  if (names.empty()) return "Quarl needs to be restarted on the Mac before it can click or type, so nothing was done.";
  if (names.size() == 1) return names.front() + " is off for Quarl on the Mac, so nothing was done.";
  std::string joined;
  for (std::size_t i = 0; i + 1 < names.size(); ++i) joined += (i == 0 ? "" : ", ") + names[i];
  return joined + " and " + names.back() + " are off for Quarl on the Mac, so nothing was done.";
}

bool OperatorSession::begin(const std::string& runId) {
  std::lock_guard lock(mutex_);
  if (stopped_.contains(runId)) return false;
  live_ = runId;
  return true;
}

std::optional<std::string> OperatorSession::admit(const std::string& runId, MacCapabilityClass klass,
                                                  bool indicatorShown, const Conditions& conditions) {
  std::lock_guard lock(mutex_);
  if (stopped_.contains(runId) || (live_ && *live_ != runId)) {
    return "You stopped Quarl on the Mac, so this step did not run.";
  }
  if (auto sentence = refusalSentence(klass, conditions)) return sentence;
  if (!indicatorShown) return "The “Quarl is operating this Mac” bar was not on screen, so nothing was done.";
  return std::nullopt;
}

std::optional<std::string> OperatorSession::stop() {
  std::lock_guard lock(mutex_);
  auto was = live_;
  if (was) stopped_.insert(*was);
  live_.reset();
  return was;
}

void OperatorSession::ended(const std::string& runId) {
  std::lock_guard lock(mutex_);
  if (live_ == runId) live_.reset();
}

std::optional<std::string> OperatorSession::liveRunId() const {
  std::lock_guard lock(mutex_);
  return live_;
}

bool OperatorSession::isStopped(const std::string& runId) const {
  std::lock_guard lock(mutex_);
  return stopped_.contains(runId);
}

std::vector<std::string> OperatorSession::can(const Conditions& conditions) {
  return can(conditions, [](MacCapabilityClass) { return true; });
}

std::vector<std::string> OperatorSession::can(const Conditions& conditions,
                                              const std::function<bool(MacCapabilityClass)>& serves) {
  std::vector<std::string> ready;
  for (const auto klass : advertisedClasses) {
    if (serves(klass) && blockers(klass, conditions).empty()) ready.emplace_back(wireName(klass));
  }
  return ready;
}

bool OperatorSession::mayPoll(const Conditions& conditions) {
  return conditions.switchOn && conditions.signedIn && !can(conditions).empty();
}

}  // namespace quarl

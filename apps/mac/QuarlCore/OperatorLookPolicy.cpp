#include "OperatorLookPolicy.h"

#include <algorithm>

#include "ActPolicy.h"

namespace quarl {

namespace {

template <std::size_t N>
bool listed(const std::string_view (&list)[N], std::string_view id) {
  return std::any_of(std::begin(list), std::end(list), [id](std::string_view entry) {
    return entry.size() == id.size() &&
           std::equal(entry.begin(), entry.end(), id.begin(), [](char a, char b) { return std::tolower(a) == std::tolower(b); });
  });
}

}  // namespace

bool OperatorLookPolicy::isNeverLookedAt(const RunningApp& app, std::int64_t ownProcessId) {
  if (app.processId == ownProcessId) return true;
  if (app.bundleId && (listed(neverLookedAtMac, *app.bundleId) || listed(neverLookedAtLinux, *app.bundleId))) {
    return true;
  }
  return listed(neverLookedAtLinux, app.name);
}

std::variant<RunningApp, std::string> OperatorLookPolicy::frontTarget(const std::optional<std::string>& named,
                                                                      const std::vector<RunningApp>& running,
                                                                      std::int64_t ownProcessId) {
  const auto found = std::find_if(running.begin(), running.end(), [&named](const RunningApp& app) {
    return named ? ActPolicy::isFront(*named, app) : app.frontmost;
  });
  if (found == running.end()) return named ? notOpenSentence(*named) : std::string(noFrontAppSentence);
  if (isNeverLookedAt(*found, ownProcessId)) return std::string(neverLooksSentence);
  return *found;
}

std::vector<std::int64_t> OperatorLookPolicy::excludedProcesses(const std::vector<RunningApp>& running,
                                                                std::int64_t ownProcessId) {
  std::vector<std::int64_t> excluded{ownProcessId};
  for (const auto& app : running) {
    if (app.processId && *app.processId != ownProcessId && isNeverLookedAt(app, ownProcessId)) {
      excluded.push_back(*app.processId);
    }
  }
  return excluded;
}

}  // namespace quarl

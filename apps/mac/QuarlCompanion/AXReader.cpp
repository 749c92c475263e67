#include "AXReader.h"

#include "AXWalk.h"

namespace quarl {

std::variant<AXSnapshot, std::string> AXReader::snapshot(const RunningApp& app, std::size_t budget) {
  const auto window = app.processId ? source_.frontWindow(*app.processId) : std::nullopt;
  if (!window) return noWindowSentence(app.name);
  auto kept = AXWalk::buildKeeping(source_, *window);
  auto snapshot = AXSnapshot::serialize(kept.root, app.name, registry_.nextGeneration(), budget);
  registry_.keep(*app.processId, snapshot, kept.root, std::move(kept.elements));
  return snapshot;
}

}  // namespace quarl

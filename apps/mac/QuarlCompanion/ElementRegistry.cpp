#include "ElementRegistry.h"

#include "Utf16Text.h"

#include <algorithm>

namespace quarl {

namespace {

constexpr std::size_t dialogTextMax = 600;

bool isDialog(const std::string& role) { return role == "AXDialog" || role == "AXSheet"; }

// The static texts of a dialog, which say what its buttons would do.
void collectText(const AXNode& node, std::string& text) {
  if (node.role == "AXStaticText") {
    const auto words = AXSnapshot::words(node);
    if (!words.empty()) text += (text.empty() ? "" : " ") + words;
  }
  for (const auto& child : node.children) {
    if (utf16Length(text) >= dialogTextMax) return;
    collectText(child, text);
  }
}

}  // namespace

std::int64_t ElementRegistry::nextGeneration() {
  const std::lock_guard held(lock_);
  return ++generation_;
}

void ElementRegistry::keep(std::int64_t processId, const AXSnapshot& snapshot, const AXNode& window,
                           std::vector<AXElement> elements) {
  Read read{snapshot.generation, snapshot.elementRefs, std::move(elements), window.title, std::nullopt};
  if (isDialog(window.role)) {
    std::string text;
    collectText(window, text);
    read.dialogText = utf16Prefix(text, dialogTextMax);
  }
  const std::lock_guard held(lock_);
  reads_[processId] = std::move(read);
}

std::optional<ElementRegistry::Found> ElementRegistry::element(const std::string& id, std::int64_t processId) const {
  const std::lock_guard held(lock_);
  const auto read = reads_.find(processId);
  if (read == reads_.end() || !AXSnapshot::resolve(id, read->second.generation)) return std::nullopt;
  const auto ref = read->second.refs.find(id);
  if (ref == read->second.refs.end() || ref->second >= read->second.elements.size()) return std::nullopt;
  return Found{read->second.elements[ref->second], read->second.windowTitle, read->second.dialogText};
}

bool ElementRegistry::isOfLastRead(const std::string& id, std::int64_t processId) const {
  const std::lock_guard held(lock_);
  const auto read = reads_.find(processId);
  return read != reads_.end() && AXSnapshot::resolve(id, read->second.generation);
}

void ElementRegistry::forgetAllBut(const std::vector<std::int64_t>& running) {
  const std::lock_guard held(lock_);
  std::erase_if(reads_, [&running](const auto& read) {
    return std::find(running.begin(), running.end(), read.first) == running.end();
  });
}

}  // namespace quarl

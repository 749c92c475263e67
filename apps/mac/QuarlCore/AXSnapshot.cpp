#include "AXSnapshot.h"

#include <algorithm>
#include <charconv>

#include "Trimmed.h"
#include "Utf16Text.h"

namespace quarl {

namespace {

std::string oneLine(std::string_view text) {
  std::string line;
  line.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;  // CR LF is one line end
    line += (text[i] == '\r' || text[i] == '\n') ? ' ' : text[i];
  }
  return std::string(trimmed(line, " "));
}

std::optional<std::int64_t> decimal(std::string_view text) {
  if (text.empty() || text.size() > 18) return std::nullopt;
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || text.front() == '-') return std::nullopt;
  return value;
}

class Writer {
 public:
  Writer(AXSnapshot& snapshot, std::size_t budget) : snapshot_(snapshot), budget_(budget) {}

  // False once the budget is spent: the visit ends there for good.
  bool visit(const AXNode& node, int depth) {
    const bool secure = AXSnapshot::isSecure(node.role, node.subrole);
    const auto words = AXSnapshot::words(node);
    const bool actionable = node.ref && AXSnapshot::isActionableRole(node.role);
    if (!words.empty() || secure || actionable) {
      if (!write(node, depth, secure, words, actionable)) return false;
    }
    for (const auto& child : node.children) {
      if (!visit(child, depth + 1)) return false;
    }
    return true;
  }

 private:
  bool write(const AXNode& node, int depth, bool secure, const std::string& words, bool actionable) {
    const auto index = static_cast<std::size_t>(snapshot_.elementCount) + 1;
    const auto id = AXSnapshot::elementId(snapshot_.generation, index);
    const auto role = secure ? std::string(AXSnapshot::secureRole) : node.role;
    std::string line(static_cast<std::size_t>(std::min(depth, AXSnapshot::indentLevelsMax)) * 2, ' ');
    line += "[" + id + "] " + role;
    if (!words.empty()) line += " " + words;
    const auto cost = utf16Length(line) + (lines_ == 0 ? 0 : 1);
    if (used_ + cost > budget_) {
      snapshot_.truncated = true;
      return false;
    }
    used_ += cost;
    if (lines_++ > 0) snapshot_.text += '\n';
    snapshot_.text += line;
    snapshot_.elementCount = static_cast<std::int64_t>(index);
    if (actionable && snapshot_.elements.size() < AXSnapshot::elementsListed) {
      snapshot_.elements.push_back({id, role, words.empty() ? std::nullopt : std::optional(words), node.enabled});
      snapshot_.elementRefs[id] = *node.ref;
    }
    return true;
  }

  AXSnapshot& snapshot_;
  std::size_t budget_;
  std::size_t used_ = 0;
  std::size_t lines_ = 0;
};

}  // namespace

boost::json::object MacElementInfo::wire() const {
  boost::json::object object{{"id", id}, {"role", role}};
  if (name) object["name"] = *name;
  if (enabled) object["enabled"] = *enabled;
  return object;
}

AXSnapshot AXSnapshot::serialize(const AXNode& root, std::string app, std::int64_t generation, std::size_t budget) {
  AXSnapshot snapshot;
  snapshot.app = std::move(app);
  snapshot.generation = generation;
  Writer(snapshot, budget).visit(root, 0);
  return snapshot;
}

std::string AXSnapshot::elementId(std::int64_t generation, std::size_t index) {
  return std::to_string(generation) + "." + std::to_string(index);
}

std::optional<std::size_t> AXSnapshot::resolve(std::string_view id, std::int64_t currentGeneration) {
  const auto dot = id.find('.');
  if (dot == std::string_view::npos || id.find('.', dot + 1) != std::string_view::npos) return std::nullopt;
  const auto generation = decimal(id.substr(0, dot));
  const auto index = decimal(id.substr(dot + 1));
  if (!generation || !index || *generation != currentGeneration || *index <= 0) return std::nullopt;
  return static_cast<std::size_t>(*index);
}

bool AXSnapshot::isSecure(std::string_view role, const std::optional<std::string>& subrole) {
  return role == secureRole || subrole == secureRole;
}

bool AXSnapshot::isActionableRole(std::string_view role) {
  return std::find(std::begin(actionableRoles), std::end(actionableRoles), role) != std::end(actionableRoles);
}

std::string AXSnapshot::words(const AXNode& node) {
  if (isSecure(node.role, node.subrole)) return {};
  std::string joined;
  for (const auto* part : {&node.title, &node.value, &node.label}) {
    if (!*part) continue;
    const auto line = oneLine(**part);
    if (line.empty()) continue;
    if (!joined.empty()) joined += " — ";
    joined += line;
  }
  return joined;
}

}  // namespace quarl

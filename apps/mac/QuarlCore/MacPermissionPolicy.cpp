#include "MacPermissionPolicy.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "Utf16Text.h"

namespace quarl {

namespace {

constexpr std::size_t shownNameMax = 80;

// Trimmed of spaces and lower-cased, as apps are compared.
std::string comparable(std::string_view name) {
  const auto first = name.find_first_not_of(' ');
  if (first == std::string_view::npos) return "";
  name = name.substr(first, name.find_last_not_of(' ') - first + 1);
  std::string out(name);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return out;
}

bool within(std::string_view path, std::string_view folder) {
  return path == folder || (path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/');
}

std::string collapsedSpaces(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (c == ' ' && !out.empty() && out.back() == ' ') continue;
    out += c;
  }
  return out;
}

}  // namespace

std::optional<MacPermissionPolicy::Hold> MacPermissionPolicy::actHold(std::string_view kind, std::string_view app,
                                                                     const std::vector<std::string>& alsoKnownAs,
                                                                     const MacPermit& permit) {
  if (permit.mode == MacPermissionMode::automatic) return std::nullopt;
  if (std::find(std::begin(grantableActions), std::end(grantableActions), kind) == std::end(grantableActions)) {
    return std::nullopt;
  }
  std::vector<std::string> names{comparable(app)};
  for (const auto& other : alsoKnownAs) names.push_back(comparable(other));
  for (const auto& allowed : permit.apps) {
    const auto name = comparable(allowed);
    if (!name.empty() && std::find(names.begin(), names.end(), name) != names.end()) return std::nullopt;
  }
  return Hold{appQuestion(kind, app), MacPermissionAsk::app};
}

std::optional<MacPermissionPolicy::Hold> MacPermissionPolicy::fileHold(std::string_view path, std::string_view home,
                                                                      const MacPermit& permit) {
  if (permit.mode != MacPermissionMode::ask) return std::nullopt;
  for (const auto& granted : permit.folders) {
    if (covers(granted, path)) return std::nullopt;
  }
  return Hold{folderQuestion(displayDir(path, home)), MacPermissionAsk::folder};
}

std::optional<MacPermissionPolicy::Hold> MacPermissionPolicy::fileReadHold(std::string_view file, std::string_view home,
                                                                          const MacPermit& permit) {
  const auto slash = file.rfind('/');
  const auto folder = file.substr(0, std::max<std::size_t>(slash, 1));
  if (folder != home) return fileHold(folder, home, permit);
  if (permit.mode != MacPermissionMode::ask) return std::nullopt;
  for (const auto& granted : permit.folders) {
    if (covers(granted, file)) return std::nullopt;
  }
  return Hold{homeFileQuestion(file.substr(slash + 1)), MacPermissionAsk::folder};
}

std::string MacPermissionPolicy::homeFileQuestion(std::string_view name) {
  return "Let Quarl read \u201c" + std::string(name) + "\u201d in your home folder?";
}

bool MacPermissionPolicy::covers(std::string_view granted, std::string_view path) {
  return isValid(granted) && isValid(path) && within(path, granted);
}

bool MacPermissionPolicy::isValid(std::string_view dir) {
  if (dir.size() < 2 || dir.front() != '/') return false;
  std::size_t start = 1;
  while (start <= dir.size()) {
    const auto end = std::min(dir.find('/', start), dir.size());
    const auto component = dir.substr(start, end - start);
    if (component.empty() || component == "." || component == ".." || component.find('\0') != std::string_view::npos) {
      return false;
    }
    start = end + 1;
  }
  return true;
}

std::string MacPermissionPolicy::displayDir(std::string_view path, std::string_view home) {
  const auto cloud = std::string(home) + "/" + std::string(iCloudDriveFolder);
  if (within(path, cloud)) return std::string(iCloudDrive);
  if (path == home) return "your home folder";
  if (within(path, home)) return std::string(path.substr(home.size() + 1));
  return std::string(path);
}

std::string MacPermissionPolicy::folderQuestion(std::string_view folder) {
  return "Let Quarl read " + std::string(folder) + "?";
}

std::string MacPermissionPolicy::appQuestion(std::string_view kind, std::string_view app) {
  const std::string name(app);
  if (kind == "open_app") return "Let Quarl open " + name + "?";
  if (kind == "press_element") return "Let Quarl press buttons in " + name + "?";
  if (kind == "type_text") return "Let Quarl type in " + name + "?";
  if (kind == "key") return "Let Quarl press keys in " + name + "?";
  if (kind == "scroll") return "Let Quarl scroll in " + name + "?";
  if (kind == "move_file") return "Let Quarl move files in " + name + "?";
  if (kind == "rename_file") return "Let Quarl rename files in " + name + "?";
  return "Let Quarl use " + name + "?";
}

std::optional<std::string> MacPermissionPolicy::sendAlwaysAsks(std::string_view name, std::int64_t bytes) {
  if (bytes < sendAsksFrom) return std::nullopt;
  auto shown = collapsedSpaces(name);
  if (utf16Length(shown) > shownNameMax) shown = utf16Prefix(shown, shownNameMax) + "…";
  const auto megabytes = std::llround(double(bytes) / 1'000'000.0);
  return "Bring “" + shown + "” back from your Mac, " + std::to_string(megabytes) + " MB.";
}

}  // namespace quarl

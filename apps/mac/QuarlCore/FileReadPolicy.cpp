#include "FileReadPolicy.h"

#include "MacPermissionPolicy.h"

#include <algorithm>
#include <cctype>

namespace quarl {

namespace {

std::string lowered(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return out;
}

template <std::size_t N>
bool listed(const std::string_view (&list)[N], std::string_view word) {
  return std::find(std::begin(list), std::end(list), word) != std::end(list);
}

}  // namespace

std::string FileReadPolicy::extension(std::string_view path) {
  const auto name = path.substr(path.rfind('/') + 1);
  const auto dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return "";
  return lowered(name.substr(dot + 1));
}

bool FileReadPolicy::isSecret(std::string_view path) {
  std::size_t start = 0;
  while (start <= path.size()) {
    const auto end = std::min(path.find('/', start), path.size());
    if (listed(deniedFolders, lowered(path.substr(start, end - start)))) return true;
    start = end + 1;
  }
  return listed(deniedExtensions, extension(path));
}

bool FileReadPolicy::isOffLimits(std::string_view path, std::string_view home, const std::vector<std::string>& ownFolders) {
  if (isSecret(path)) return true;
  for (const auto& own : ownFolders) {
    if (MacPermissionPolicy::covers(own, path)) return true;
  }
  if (!MacPermissionPolicy::covers(home, path)) return false;
  for (auto rest = path.substr(home.size()); !rest.empty();) {
    rest.remove_prefix(1);  // the "/" before a component
    if (rest.starts_with('.')) return true;
    const auto slash = rest.find('/');
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
  }
  return false;
}

bool FileReadPolicy::isDocument(std::string_view path) { return listed(documentExtensions, extension(path)); }

}  // namespace quarl

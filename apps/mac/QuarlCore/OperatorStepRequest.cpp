#include "OperatorStepRequest.h"

#include <algorithm>
#include <boost/json/value.hpp>
#include <cmath>
#include <initializer_list>
#include <limits>

#include "FolderAccess.h"
#include "Trimmed.h"
#include "Utf16Text.h"

namespace quarl {
namespace json = boost::json;

namespace {

using Request = OperatorStepRequest;

struct KindRow {
  std::string_view kind;
  std::initializer_list<std::string_view> keys;
  MacCapabilityClass klass;
};

// In the order of the request's alternatives.
const KindRow kinds[] = {
    {"look", {"app"}, MacCapabilityClass::screen},
    {"read_screen_text", {"app"}, MacCapabilityClass::screen},
    {"list_files", {"query", "limit", "folder"}, MacCapabilityClass::files},
    {"read_file", {"ref"}, MacCapabilityClass::files},
    {"send_file", {"ref"}, MacCapabilityClass::files},
    {"open_app", {"app"}, MacCapabilityClass::act},
    {"press_element", {"app", "element"}, MacCapabilityClass::act},
    {"type_text", {"app", "element", "text"}, MacCapabilityClass::act},
    {"key", {"app", "key", "modifiers"}, MacCapabilityClass::act},
    {"scroll", {"app", "direction", "amount"}, MacCapabilityClass::act},
    {"list_apps", {}, MacCapabilityClass::screen},
};

template <std::size_t N>
bool contains(const std::string_view (&set)[N], std::string_view value) {
  return std::find(std::begin(set), std::end(set), value) != std::end(set);
}

const json::string* stringAt(const json::object& object, std::string_view key) {
  const auto* value = object.if_contains(key);
  return value ? value->if_string() : nullptr;
}

// A JSON number with no fractional part that fits 64 bits; a string is never a number.
std::optional<std::int64_t> wholeNumber(const json::value& value) {
  if (value.is_int64()) return value.get_int64();
  if (value.is_uint64()) {
    if (value.get_uint64() > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return std::nullopt;
    return static_cast<std::int64_t>(value.get_uint64());
  }
  if (value.is_double()) {
    const double number = value.get_double();
    if (!std::isfinite(number) || std::trunc(number) != number || number < -9.2e18 || number > 9.2e18) {
      return std::nullopt;
    }
    return static_cast<std::int64_t>(number);
  }
  return std::nullopt;
}

// `key` absent gives `fallback`; present, it must be a whole number in [low, high].
std::optional<std::int64_t> boundedNumber(const json::object& object, std::string_view key, std::int64_t low,
                                          std::int64_t high, std::int64_t fallback) {
  const auto* value = object.if_contains(key);
  if (!value) return fallback;
  const auto number = wholeNumber(*value);
  if (!number || *number < low || *number > high) return std::nullopt;
  return number;
}

// Absent: fine, and none. Present: trimmed, non-empty and at most `max` units, or not understood.
struct OptionalText {
  bool understood = true;
  std::optional<std::string> text;
};
OptionalText trimmedText(const json::object& object, std::string_view key, std::size_t max) {
  if (!object.contains(key)) return {};
  const auto* text = stringAt(object, key);
  if (!text) return {false, std::nullopt};
  std::string kept(trimmed(*text));
  if (kept.empty() || utf16Length(kept) > max) return {false, std::nullopt};
  return {true, std::move(kept)};
}

std::optional<std::string> checked(const json::object& object, std::string_view key, bool (*accepts)(std::string_view)) {
  const auto* text = stringAt(object, key);
  if (!text || !accepts(*text)) return std::nullopt;
  return std::string(*text);
}

bool isAsciiAlnum(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

std::optional<Request::Value> readKind(std::string_view kind, const json::object& object,
                                       const std::optional<std::string>& app) {
  if (kind == "look") return Request::Look{app};
  if (kind == "read_screen_text") return Request::ReadScreenText{app};
  if (kind == "list_apps") return Request::ListApps{};
  if (kind == "open_app") {
    if (!app) return std::nullopt;
    return Request::OpenApp{*app};
  }
  if (kind == "list_files") {
    const auto query = trimmedText(object, "query", Request::queryMax);
    if (!query.understood || !query.text) return std::nullopt;
    const auto limit = boundedNumber(object, "limit", 1, Request::listFilesMax, Request::listFilesDefault);
    const auto folder = trimmedText(object, "folder", FolderAccess::folderMax);
    if (!limit || !folder.understood || (folder.text && !FolderAccess::isValid(*folder.text))) return std::nullopt;
    return Request::ListFiles{*query.text, *limit, folder.text};
  }
  if (kind == "read_file" || kind == "send_file") {
    auto ref = checked(object, "ref", &Request::isFileRef);
    if (!ref) return std::nullopt;
    if (kind == "read_file") return Request::ReadFile{std::move(*ref)};
    return Request::SendFile{std::move(*ref)};
  }
  if (kind == "press_element") {
    auto element = checked(object, "element", &Request::isElementId);
    if (!element) return std::nullopt;
    return Request::PressElement{app, std::move(*element)};
  }
  if (kind == "type_text") {
    std::optional<std::string> element;
    if (object.contains("element")) {
      element = checked(object, "element", &Request::isElementId);
      if (!element) return std::nullopt;
    }
    const auto* text = stringAt(object, "text");
    if (!text || text->empty() || utf16Length(*text) > Request::typeTextMax) return std::nullopt;
    return Request::TypeText{app, std::move(element), std::string(*text)};
  }
  if (kind == "key") {
    auto key = checked(object, "key", &Request::isKeyName);
    if (!key) return std::nullopt;
    std::vector<std::string> modifiers;
    if (const auto* given = object.if_contains("modifiers")) {
      const auto* list = given->if_array();
      if (!list || list->size() > std::size(Request::keyModifiers)) return std::nullopt;
      for (const auto& modifier : *list) {
        const auto* name = modifier.if_string();
        if (!name || !contains(Request::keyModifiers, *name)) return std::nullopt;
        modifiers.emplace_back(*name);
      }
    }
    return Request::Key{app, std::move(*key), std::move(modifiers)};
  }
  if (kind == "scroll") {
    const auto* direction = stringAt(object, "direction");
    if (!direction || !contains(Request::directions, *direction)) return std::nullopt;
    const auto amount = boundedNumber(object, "amount", 1, 10, 1);
    if (!amount) return std::nullopt;
    return Request::Scroll{app, std::string(*direction), *amount};
  }
  return std::nullopt;
}

}  // namespace

std::optional<OperatorStepRequest> OperatorStepRequest::parse(const json::object& object) {
  const auto* kind = stringAt(object, "kind");
  if (object.empty() || !kind) return std::nullopt;
  const auto row = std::find_if(std::begin(kinds), std::end(kinds), [&](const KindRow& r) { return r.kind == *kind; });
  if (row == std::end(kinds)) return std::nullopt;
  for (const auto& member : object) {
    if (member.key() == "kind") continue;
    if (std::find(row->keys.begin(), row->keys.end(), member.key()) == row->keys.end()) return std::nullopt;
  }
  const auto app = trimmedText(object, "app", appNameMax);
  if (!app.understood) return std::nullopt;
  auto value = readKind(*kind, object, app.text);
  if (!value) return std::nullopt;
  return OperatorStepRequest{std::move(*value)};
}

bool OperatorStepRequest::isFileRef(std::string_view text) {
  return text.size() >= 8 && text.size() <= 128 &&
         std::all_of(text.begin(), text.end(), [](char c) { return isAsciiAlnum(c) || c == '-' || c == '_'; });
}

bool OperatorStepRequest::isElementId(std::string_view text) {
  return !text.empty() && text.size() <= 64 && std::all_of(text.begin(), text.end(), [](char c) {
    return isAsciiAlnum(c) || c == '_' || c == '.' || c == ':' || c == '-';
  });
}

bool OperatorStepRequest::isKeyName(std::string_view text) {
  if (contains(namedKeys, text)) return true;
  return text.size() == 1 && ((text[0] >= 'a' && text[0] <= 'z') || (text[0] >= '0' && text[0] <= '9'));
}

std::string_view OperatorStepRequest::kind() const { return kinds[value.index()].kind; }

MacCapabilityClass OperatorStepRequest::klass() const { return kinds[value.index()].klass; }

std::optional<std::string> OperatorStepRequest::actApp() const {
  return std::visit(
      [](const auto& step) -> std::optional<std::string> {
        using Step = std::decay_t<decltype(step)>;
        if constexpr (std::is_same_v<Step, OpenApp>) {
          return step.app;
        } else if constexpr (std::is_same_v<Step, PressElement> || std::is_same_v<Step, TypeText> ||
                             std::is_same_v<Step, Key> || std::is_same_v<Step, Scroll>) {
          return step.app;
        } else {
          return std::nullopt;
        }
      },
      value);
}

}  // namespace quarl

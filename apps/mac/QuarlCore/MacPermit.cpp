#include "MacPermit.h"

namespace quarl {
namespace json = boost::json;

namespace {

std::vector<std::string> texts(const json::object& permit, std::string_view key) {
  const auto* list = permit.if_contains(key);
  if (!list || !list->is_array()) return {};
  std::vector<std::string> out;
  for (const auto& item : list->get_array()) {
    if (!item.is_string()) return {};
    out.emplace_back(item.get_string());
  }
  return out;
}

}  // namespace

std::optional<MacPermit> MacPermit::from(const std::optional<json::value>& permit) {
  if (!permit || !permit->is_object()) return std::nullopt;
  const auto& object = permit->get_object();
  const auto* raw = object.if_contains("mode");
  if (!raw || !raw->is_string()) return std::nullopt;
  const auto mode = macPermissionMode(raw->get_string());
  if (!mode) return std::nullopt;
  return MacPermit{*mode, texts(object, "folders"), texts(object, "apps")};
}

MacPermit MacPermit::forStep(const std::optional<json::value>& permit) { return from(permit).value_or(MacPermit{}); }

}  // namespace quarl

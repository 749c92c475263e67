#include "OperatorPress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "Sha256.h"

namespace quarl {

namespace {

namespace json = boost::json;

void writeString(std::string_view text, std::string& out) {
  out += '"';
  for (const char c : text) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\b': out += "\\b"; break;
      case '\f': out += "\\f"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
          out += escaped;
        } else {
          out += c;
        }
    }
  }
  out += '"';
}

bool write(const json::value& value, std::string& out) {
  switch (value.kind()) {
    case json::kind::null: out += "null"; return true;
    case json::kind::bool_: out += value.get_bool() ? "true" : "false"; return true;
    case json::kind::int64: out += std::to_string(value.get_int64()); return true;
    case json::kind::uint64: out += std::to_string(value.get_uint64()); return true;
    case json::kind::double_: {
      const double number = value.get_double();
      if (!std::isfinite(number) || std::trunc(number) != number || std::fabs(number) >= 9.2e18) return false;
      out += std::to_string(static_cast<std::int64_t>(number));
      return true;
    }
    case json::kind::string: writeString(value.get_string(), out); return true;
    case json::kind::array: {
      out += '[';
      bool first = true;
      for (const auto& item : value.get_array()) {
        if (!first) out += ',';
        first = false;
        if (!write(item, out)) return false;
      }
      out += ']';
      return true;
    }
    case json::kind::object: {
      std::vector<const json::key_value_pair*> members;
      for (const auto& member : value.get_object()) members.push_back(&member);
      std::sort(members.begin(), members.end(), [](auto* a, auto* b) { return a->key() < b->key(); });
      out += '{';
      bool first = true;
      for (const auto* member : members) {
        if (!first) out += ',';
        first = false;
        writeString(member->key(), out);
        out += ':';
        if (!write(member->value(), out)) return false;
      }
      out += '}';
      return true;
    }
  }
  return false;
}

}  // namespace

std::optional<std::string> OperatorPress::canonical(std::string_view runId, const json::object& step) {
  std::string out;
  if (!write(json::object{{"runId", runId}, {"step", step}}, out)) return std::nullopt;
  return out;
}

std::optional<std::string> OperatorPress::digest(std::string_view runId, const json::object& step) {
  const auto form = canonical(runId, step);
  if (!form) return std::nullopt;
  return sha256Hex(*form);
}

bool OperatorPress::approves(const std::optional<json::value>& press, std::string_view runId, const json::object& step) {
  if (!press || !press->is_string()) return false;
  const auto wanted = digest(runId, step);
  return wanted && press->get_string() == *wanted;
}

}  // namespace quarl

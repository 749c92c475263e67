#pragma once

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace quarl {

// The owner's press on a screen, as the service carries it with a held step: the SHA-256 of
// the step it approves. A press lifts a hold only for this very step of this very run, so a
// press given for one act never lets another through.
//
// The digest is the lower-case hexadecimal SHA-256 of the UTF-8 bytes of the canonical form of
// {"runId": <run id>, "step": <the step object as the service sent it>}:
// - objects with their keys sorted by their UTF-8 bytes, at every level;
// - no white space between tokens;
// - strings in double quotes, escaping only `"` as \", `\` as \\, and characters below U+0020
//   as \b \f \n \r \t or else \u00XX (lower-case hexadecimal); everything else as its UTF-8;
// - whole numbers in plain decimal with no exponent, fraction or plus sign ("amount": 3.0 is
//   written 3); a step holding any other number has no canonical form, and no press approves it
//   (no step this Mac understands carries one);
// - true, false and null as themselves.
// For example {"runId":"r1","step":{"app":"Mail","element":"4.2","kind":"press_element"}}.
struct OperatorPress {
  static std::optional<std::string> canonical(std::string_view runId, const boost::json::object& step);
  static std::optional<std::string> digest(std::string_view runId, const boost::json::object& step);
  // Whether `press` (the step's "pressed") is the digest of this run and step.
  static bool approves(const std::optional<boost::json::value>& press, std::string_view runId,
                       const boost::json::object& step);
};

}  // namespace quarl

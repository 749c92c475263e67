#pragma once

#include <boost/json/object.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "MacCapabilityClass.h"

namespace quarl {

// One operator step as the service sends it, read strictly: a step this Mac understands only
// in part is not understood at all, so it never runs half-known.
struct OperatorStepRequest {
  struct Look {
    std::optional<std::string> app;
  };
  struct ReadScreenText {
    std::optional<std::string> app;
  };
  struct ListFiles {
    std::string query;
    std::int64_t limit = 10;
    std::optional<std::string> folder;
  };
  struct ReadFile {
    std::string ref;
  };
  struct SendFile {
    std::string ref;
  };
  struct OpenApp {
    std::string app;
  };
  struct PressElement {
    std::optional<std::string> app;
    std::string element;
  };
  struct TypeText {
    std::optional<std::string> app;
    std::optional<std::string> element;
    std::string text;  // exactly as sent
  };
  struct Key {
    std::optional<std::string> app;
    std::string key;
    std::vector<std::string> modifiers;
  };
  struct Scroll {
    std::optional<std::string> app;
    std::string direction;
    std::int64_t amount = 1;
  };
  struct ListApps {};

  using Value = std::variant<Look, ReadScreenText, ListFiles, ReadFile, SendFile, OpenApp, PressElement, TypeText, Key,
                             Scroll, ListApps>;
  Value value;

  static constexpr std::size_t appNameMax = 120;
  static constexpr std::size_t queryMax = 120;
  static constexpr std::size_t typeTextMax = 2000;
  static constexpr std::int64_t listFilesMax = 20;
  static constexpr std::int64_t listFilesDefault = 10;
  static constexpr std::string_view namedKeys[] = {"return", "enter",  "tab",   "escape", "space",
                                                   "delete", "forward_delete", "up", "down", "left",
                                                   "right",  "home",   "end",   "page_up", "page_down"};
  static constexpr std::string_view keyModifiers[] = {"command", "option", "control", "shift"};
  static constexpr std::string_view directions[] = {"up", "down", "left", "right"};
  static constexpr std::string_view protocolTwoKinds[] = {"list_files", "read_file",  "send_file", "open_app",
                                                          "press_element", "type_text", "key",      "scroll"};

  // None when the step is not understood.
  static std::optional<OperatorStepRequest> parse(const boost::json::object& object);

  // 8 to 128 characters, each an ASCII letter or digit, "-" or "_".
  static bool isFileRef(std::string_view text);
  // 1 to 64 characters, each an ASCII letter or digit, "_", ".", ":" or "-".
  static bool isElementId(std::string_view text);
  // A named key, or one lower-case ASCII letter or digit.
  static bool isKeyName(std::string_view text);

  std::string_view kind() const;
  MacCapabilityClass klass() const;
  // The app of the five act steps; none for the others.
  std::optional<std::string> actApp() const;
};

}  // namespace quarl

#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>
#include <string>

namespace quarl {

// The Mac's virtual key codes (ANSI layout) and event flag masks for the keys a step may name.
// Other platforms translate from the names, and check the stop keys here all the same.
struct MacKeyCodes {
  static constexpr std::uint16_t fullStop = 47;
  static constexpr std::uint64_t commandFlag = 0x100000;
  static constexpr std::uint64_t optionFlag = 0x80000;
  static constexpr std::uint64_t controlFlag = 0x40000;
  static constexpr std::uint64_t shiftFlag = 0x20000;

  struct Entry {
    std::string_view name;
    std::uint16_t code;
  };
  static constexpr Entry named[] = {{"return", 36},    {"enter", 76},         {"tab", 48},   {"escape", 53},
                                    {"space", 49},     {"delete", 51},        {"forward_delete", 117},
                                    {"up", 126},       {"down", 125},         {"left", 123}, {"right", 124},
                                    {"home", 115},     {"end", 119},          {"page_up", 116}, {"page_down", 121}};
  static constexpr Entry characters[] = {
      {"a", 0},  {"b", 11}, {"c", 8},  {"d", 2},  {"e", 14}, {"f", 3},  {"g", 5},  {"h", 4},  {"i", 34},
      {"j", 38}, {"k", 40}, {"l", 37}, {"m", 46}, {"n", 45}, {"o", 31}, {"p", 35}, {"q", 12}, {"r", 15},
      {"s", 1},  {"t", 17}, {"u", 32}, {"v", 9},  {"w", 13}, {"x", 7},  {"y", 16}, {"z", 6},  {"0", 29},
      {"1", 18}, {"2", 19}, {"3", 20}, {"4", 21}, {"5", 23}, {"6", 22}, {"7", 26}, {"8", 28}, {"9", 25}};
  struct Flag {
    std::string_view modifier;
    std::uint64_t mask;
  };
  static constexpr Flag modifierFlags[] = {
      {"command", commandFlag}, {"option", optionFlag}, {"control", controlFlag}, {"shift", shiftFlag}};

  static std::optional<std::uint16_t> code(std::string_view key);
  static std::uint64_t flags(const std::vector<std::string>& modifiers);
  // Control-Option-Command-period, the stop hot key: never posted by an act.
  static bool isStopKeys(std::uint16_t code, const std::vector<std::string>& modifiers);
};

}  // namespace quarl

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quarl {

// The Mac's secret items (the two session tokens), one text value per account. A failure
// shows in the result and is never fatal: tokens in memory stay in use for the run.
class Keychain {
 public:
  virtual ~Keychain() = default;
  // None when the item is missing, unreadable or not UTF-8.
  virtual std::optional<std::string> read(std::string_view account) const = 0;
  // Replaces any item of the account; whether the new one was stored.
  virtual bool write(std::string_view account, std::string_view value) = 0;
  // Whether the item was deleted.
  virtual bool remove(std::string_view account) = 0;
};

}  // namespace quarl

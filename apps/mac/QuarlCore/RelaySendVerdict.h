#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace quarl {

// What one look at the store says about a relayed send.
struct RelaySendVerdict {
  struct Refused {
    std::vector<std::int64_t> codes;  // distinct, ascending
    int failedParts = 0;
    int parts = 0;
  };
  struct Incomplete {
    int written = 0;
    int expected = 0;
  };
  struct NoneWritten {
    int expected = 0;
  };
  struct NotObservable {
    std::string reason;
  };
  struct Confirmed {
    std::optional<std::string> providerMessageId;  // the guid of the text's row, or of the one row
  };

  std::variant<Refused, Incomplete, NoneWritten, NotObservable, Confirmed> value;

  // Refused and confirmed end the polling at once.
  bool isFinal() const {
    return std::holds_alternative<Refused>(value) || std::holds_alternative<Confirmed>(value);
  }
};

}  // namespace quarl

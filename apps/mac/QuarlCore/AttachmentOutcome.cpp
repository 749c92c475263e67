#include "AttachmentOutcome.h"

namespace quarl {

std::optional<std::string> attachmentLine(const AttachmentOutcome& outcome) {
  if (outcome.sent + outcome.notWanted + outcome.failed + outcome.unnamed == 0) return std::nullopt;
  return "files: " + std::to_string(outcome.sent) + " sent, " + std::to_string(outcome.notWanted) + " not wanted, " +
         std::to_string(outcome.failed) + " failed, " + std::to_string(outcome.unnamed) + " not named by Quarl";
}

}  // namespace quarl

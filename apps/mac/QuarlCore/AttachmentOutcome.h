#pragma once

#include <optional>
#include <string>

namespace quarl {

// What became of one message's files after the service said which it wanted.
struct AttachmentOutcome {
  int sent = 0;
  int notWanted = 0;
  int failed = 0;
  int unnamed = 0;  // files the service's answer said nothing about

  AttachmentOutcome& operator+=(const AttachmentOutcome& other) {
    sent += other.sent;
    notWanted += other.notWanted;
    failed += other.failed;
    unnamed += other.unnamed;
    return *this;
  }
  friend bool operator==(const AttachmentOutcome&, const AttachmentOutcome&) = default;
};

// "files: 1 sent, 0 not wanted, 2 failed, 0 not named by Quarl"; none when no file was involved.
std::optional<std::string> attachmentLine(const AttachmentOutcome& outcome);

// The largest inbound attachment the service takes: 25 MB.
inline constexpr std::size_t inboundAttachmentLimit = 26'214'400;

}  // namespace quarl

#pragma once

#include <optional>
#include <string>

namespace quarl {

// Why a file the service asked for by step was not brought back. The service's own sentence,
// when it gave one, is what the person sees.
class FileUploadFailure {
 public:
  enum class Kind { notSignedIn, moved, unreadable, incomplete, disagree, stalled, refused, stopped, other };

  FileUploadFailure() = default;
  FileUploadFailure(Kind kind, std::string reason = {}, std::optional<std::string> serviceSentence = std::nullopt)
      : kind_(kind), reason_(std::move(reason)), serviceSentence_(std::move(serviceSentence)) {}

  Kind kind() const { return kind_; }
  std::string description() const;

 private:
  Kind kind_ = Kind::other;
  std::string reason_;  // the refusal's reason
  std::optional<std::string> serviceSentence_;
};

}  // namespace quarl

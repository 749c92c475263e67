#include "FileUploadFailure.h"

#include "FileReadPolicy.h"

namespace quarl {

std::string FileUploadFailure::description() const {
  if (serviceSentence_) return *serviceSentence_;
  switch (kind_) {
    case Kind::notSignedIn: return "This Mac is not signed in to Quarl, so the file was not brought back.";
    case Kind::moved: return std::string(FileReadPolicy::movedSinceFound);
    case Kind::unreadable: return "That file could not be brought back.";
    case Kind::incomplete: return "The file did not finish arriving at Quarl, so it was not brought back.";
    case Kind::disagree: return "Quarl and the Mac disagree about how much of the file arrived.";
    case Kind::stalled: return "The file stopped arriving at Quarl, so it was not brought back.";
    case Kind::refused: return "Quarl would not take the file (" + reason_ + "), so it was not brought back.";
    case Kind::stopped: return "You stopped Quarl on the Mac, so the file was not brought back.";
    case Kind::other: return "That file could not be brought back.";
  }
  return "That file could not be brought back.";
}

}  // namespace quarl

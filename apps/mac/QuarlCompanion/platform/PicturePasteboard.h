#pragma once

#include <optional>
#include <string>

#include "WhatsAppSend.h"

namespace quarl {

// A picture put into WhatsApp Web as a person puts one: staged on the system pasteboard and
// pasted with a real Command-V into the page. The Mac has it; a host without it (Linux) always
// attaches files through WhatsApp's own menu instead. The pasteboard and the keyboard are the
// owner's: nothing is pasted while he is in the app.
class PicturePasteboard {
 public:
  virtual ~PicturePasteboard() = default;

  // The owner is using Quarl's own windows now.
  virtual bool ownerIsInTheApp() = 0;
  // Puts the picture on the pasteboard; the sentence of a failure, or none.
  virtual std::optional<std::string> stagePicture(const WhatsAppWeb::OutgoingFile& file) = 0;
  // A real Command-V to the page's window.
  virtual void pasteWithCommandV() = 0;
};

}  // namespace quarl

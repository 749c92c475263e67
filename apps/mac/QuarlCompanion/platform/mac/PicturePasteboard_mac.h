#pragma once

#include <memory>

#include "WhatsAppPage_mac.h"
#include "platform/PicturePasteboard.h"

namespace quarl {

// The general pasteboard, and a Command-V posted to this process for the parked page.
class MacPicturePasteboard final : public PicturePasteboard {
 public:
  explicit MacPicturePasteboard(std::shared_ptr<MacWhatsAppPage> page) : page_(std::move(page)) {}

  bool ownerIsInTheApp() override;
  std::optional<std::string> stagePicture(const WhatsAppWeb::OutgoingFile& file) override;
  void pasteWithCommandV() override;

 private:
  std::shared_ptr<MacWhatsAppPage> page_;
};

}  // namespace quarl

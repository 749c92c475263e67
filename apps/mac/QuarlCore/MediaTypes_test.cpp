#include "MediaTypes.h"

#include <gtest/gtest.h>

namespace quarl {
namespace {

TEST(MediaTypes, TheStoresOwnTypeThenTheIdentifierThenTheExtension) {
  EXPECT_EQ(resolveAttachmentMimeType("image/heic", "public.jpeg", "a.png"), "image/heic");
  EXPECT_EQ(resolveAttachmentMimeType("application/octet-stream", "public.jpeg", "a.png"), "image/jpeg");
  EXPECT_EQ(resolveAttachmentMimeType("", "dyn.ah62d4rv4ge80", "IMG_0001.PNG"), "image/png");
  EXPECT_EQ(resolveAttachmentMimeType(std::nullopt, "org.3gpp.adaptive-multi-rate-audio", "voice"), "audio/amr");
  EXPECT_EQ(resolveAttachmentMimeType(std::nullopt, std::nullopt, "archive."), "application/octet-stream");
}

}  // namespace
}  // namespace quarl

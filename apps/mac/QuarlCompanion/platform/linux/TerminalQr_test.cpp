#include "TerminalQr_linux.h"

#include <gtest/gtest.h>

#include "../tests/support/TemporaryDirectory.h"
#include "../tests/support/TerminalQrReading.h"

namespace quarl {
namespace {

TEST(TerminalQr, TheDrawingDecodesToItsPayload) {
  testing::TemporaryDirectory folder;
  for (const std::string& payload : {std::string("2@short"), "2@" + std::string(180, 'k') + ",Zm9v,YmFy==,1"}) {
    const auto drawn = terminalQr(payload);
    ASSERT_TRUE(drawn);
    EXPECT_EQ(testing::decodedTerminalQr(*drawn, folder.path()), payload);
  }
}

}  // namespace
}  // namespace quarl

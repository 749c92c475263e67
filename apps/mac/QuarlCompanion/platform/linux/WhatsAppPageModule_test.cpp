#include "WhatsAppPageModule_linux.h"

#include <gmock/gmock.h>

#include "../tests/support/RunAwaitable.h"

namespace quarl {
namespace {

using ::testing::HasSubstr;

TEST(WhatsAppPageModule, WithoutItsLibraryThePageSaysWhyAndEveryCallAnswersAsAPageThatIsNotThere) {
  boost::asio::io_context io;
  WhatsAppPageModule page(io.get_executor(), "/nonexistent/data", "/nonexistent/libquarl_webkit_page.so");
  const auto refusal = testing::runAwaitable(io, page.open());
  ASSERT_TRUE(refusal);
  EXPECT_THAT(*refusal, HasSubstr("the WebKit page host could not be loaded: /nonexistent/libquarl_webkit_page.so"));
  const auto evaluated = testing::runAwaitable(io, page.evaluate("1"));
  EXPECT_FALSE(evaluated.answer);
  EXPECT_EQ(evaluated.error, "the page is not open");
  EXPECT_EQ(testing::runAwaitable(io, page.savePicture("/nonexistent/picture.png")), "the page is not open");
  EXPECT_EQ(testing::runAwaitable(io, page.currentUrl()), "");
}

}  // namespace
}  // namespace quarl

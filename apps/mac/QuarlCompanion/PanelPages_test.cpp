#include "PanelPages.h"

#include <gmock/gmock.h>

namespace quarl {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(PanelPages, TextFromOutsideStaysTextAndTheButtonGivesWayToTheCodeWhilePairing) {
  const auto withButton = PanelPages::signIn(std::string("This Mac's <b>connection</b> & \"session\""), std::nullopt);
  EXPECT_THAT(withButton, HasSubstr("<p>This Mac&#39;s &lt;b&gt;connection&lt;/b&gt; &amp; &quot;session&quot;</p>"));
  EXPECT_THAT(withButton, HasSubstr("window.webkit.messageHandlers.quarl.postMessage('signIn')"));

  const auto pairing = PanelPages::signIn(std::nullopt, std::string("QRL-1001"));
  EXPECT_THAT(pairing, HasSubstr("<p class=\"code\">QRL-1001</p>"));
  EXPECT_THAT(pairing, Not(HasSubstr("postMessage"))) << "a press while pairing would start nothing";

  EXPECT_THAT(PanelPages::notice(std::string("Quarl cannot reach the server"), "a <script>"),
              HasSubstr("<h1>Quarl cannot reach the server</h1><p>a &lt;script&gt;</p>"));
  EXPECT_THAT(PanelPages::notice(std::nullopt, "text"), Not(HasSubstr("<h1>")));
}

}  // namespace
}  // namespace quarl

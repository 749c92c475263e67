#include "WhatsAppSession.h"

#include <functional>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <gmock/gmock.h>

#include "../tests/support/CapturingLogSink.h"
#include "../tests/support/FakeWhatsAppPage.h"
#include "../tests/support/ManualClock.h"
#include "../tests/support/MemorySettingsStore.h"
#include "../tests/support/RunAwaitable.h"
#include "SettingsKeys.h"

namespace quarl {
namespace {

namespace asio = boost::asio;
using namespace std::chrono_literals;
using ::testing::HasSubstr;
using WhatsAppWeb::SessionState;

constexpr auto unreadableAnswer = R"({"state":"unrecognised","title":"Error","sample":"502 Bad Gateway"})";

// What a tick asking for the state in the middle of a send would see of the page's loads.
asio::awaitable<int> loadsAfterAsking(std::shared_ptr<WhatsAppSession> session, std::shared_ptr<testing::FakeWhatsAppPage> page) {
  co_await session->settledStateIfKnown();
  co_return static_cast<int>(page->loads.size());
}

// A drive within a drive: the outer one is still protected once the inner one has ended.
asio::awaitable<int> loadsAfterAnInnerDrive(std::shared_ptr<WhatsAppSession> session,
                                            std::shared_ptr<testing::FakeWhatsAppPage> page) {
  std::function<asio::awaitable<int>()> inner = std::bind(&loadsAfterAsking, session, page);
  co_await session->drivingThePage(inner);
  co_return co_await loadsAfterAsking(session, page);
}

class WhatsAppSessionOnAManualClock : public ::testing::Test {
 protected:
  WhatsAppSessionOnAManualClock() { page_->clock = clock_; }
  ~WhatsAppSessionOnAManualClock() override { QuarlLog::install(nullptr); }

  template <class T>
  T run(asio::awaitable<T> work) { return testing::runAwaitable(io_, std::move(work)); }
  void runReady() { io_.restart(); io_.poll(); }
  // Moves time on in one-second steps, letting every coroutine that woke run after each.
  void pass(std::chrono::seconds total) {
    for (auto step = 0s; step < total; step += 1s) { clock_->advance(1s); runReady(); }
  }
  void enable() { defaults_->write(keys::whatsappEnabled, true); }
  int linesContaining(const std::string& text) { return log_->linesContaining(text); }
  bool hostsSession() { return defaults_->boolean(keys::whatsappHostsSession).value_or(false); }

  asio::io_context io_;
  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>(SystemTime(1800000000s));
  std::shared_ptr<testing::MemorySettingsStore> defaults_ = std::make_shared<testing::MemorySettingsStore>();
  std::shared_ptr<testing::FakeWhatsAppPage> page_ = std::make_shared<testing::FakeWhatsAppPage>();
  std::shared_ptr<WhatsAppSession> session_ = WhatsAppSession::create(io_.get_executor(), clock_, defaults_, page_);
  std::shared_ptr<testing::CapturingLogSink> log_ = testing::CapturingLogSink::installed();
};

TEST_F(WhatsAppSessionOnAManualClock, NothingStartsWhileOffAndTheWindowIsSeenOnlyWhileLinking) {
  run(session_->load());
  EXPECT_EQ(run(session_->settledStateIfKnown()), std::nullopt);
  EXPECT_EQ(page_->opens, 0) << "no page, window or display while WhatsApp is off";

  run(session_->showForLinking());
  EXPECT_TRUE(session_->isEnabled());
  EXPECT_EQ(page_->loads, std::vector<std::string>{"https://web.whatsapp.com/"});
  ASSERT_FALSE(page_->places.empty());
  EXPECT_EQ(page_->places.front(), (WhatsAppWeb::Point{-2100, -1800})) << "parked as soon as it exists";
  EXPECT_EQ(page_->presented, std::vector<std::string>{"WhatsApp — scan this with your phone"});
  EXPECT_EQ(linesContaining("quarl: whatsapp web loading — nothing it says is an answer yet"), 1);
  const auto placed = page_->places.size();
  page_->moved();
  runReady();
  EXPECT_EQ(page_->places.size(), placed) << "while linking, the window stays where the owner sees it";

  EXPECT_FALSE(page_->closing()) << "the window never closes";
  runReady();
  EXPECT_FALSE(session_->isShowingForLinking());
  EXPECT_EQ(page_->origin, (WhatsAppWeb::Point{-2100, -1800}));
  page_->screens.push_back({{-1920, -300}, {1920, 1080}});
  page_->origin = {0, 0};
  page_->moved();
  runReady();
  EXPECT_EQ(page_->origin, (WhatsAppWeb::Point{-4020, -2100})) << "left of and below the new screen too";
  EXPECT_EQ(linesContaining("quarl: whatsapp host was on screen — parking it again"), 1);
  page_->moved();
  runReady();
  EXPECT_EQ(linesContaining("parking it again"), 1) << "a parked window is left alone";

  run(session_->load());
  EXPECT_EQ(page_->loads.size(), 1u) << "a page already at WhatsApp is not loaded again";
  defaults_->write(keys::whatsappWebURL, "http://127.0.0.1:9/whatsapp/");
  run(session_->load());
  EXPECT_EQ(page_->loads.back(), "http://127.0.0.1:9/whatsapp/");
  EXPECT_EQ(page_->opens, 1);
}

TEST_F(WhatsAppSessionOnAManualClock, SettlingWaitsForLinkedAndItsDeadlineIsAReportNotAVerdict) {
  enable();
  defaults_->write(keys::whatsappHostsSession, true);
  page_->probeAnswer = R"({"state":"syncing"})";
  auto settled = asio::co_spawn(io_, session_->settledState(), asio::use_future);
  runReady();
  pass(39s);
  EXPECT_NE(settled.wait_for(0s), std::future_status::ready);
  pass(1s);
  ASSERT_EQ(settled.wait_for(0s), std::future_status::ready);
  EXPECT_EQ(settled.get(), SessionState::syncing());
  EXPECT_EQ(page_->probes, 41) << "one probe a second from the navigation to the deadline";
  EXPECT_TRUE(hostsSession()) << "a sync is no evidence that the phone was unlinked";

  EXPECT_EQ(run(session_->settledStateIfKnown()), SessionState::syncing());
  EXPECT_EQ(linesContaining("quarl: whatsapp web has not answered within 40s — last seen: syncing (WhatsApp is downloading "
                            "this account's messages) This is NOT 'not linked' and NOT final: it is still being asked."),
            1);
  pass(5s);
  page_->probeAnswer = R"({"state":"linked"})";
  EXPECT_EQ(run(session_->settledState()), SessionState::linked());
  EXPECT_EQ(linesContaining("quarl: whatsapp web answered after the settle deadline, at 45s: linked. The deadline is a "
                            "report, not a verdict."),
            1);
  run(session_->refreshState());
  page_->probeAnswer = R"({"state":"syncing"})";
  run(session_->refreshState());
  page_->probeAnswer = R"({"state":"linked"})";
  run(session_->refreshState());
  EXPECT_EQ(linesContaining("after the settle deadline"), 1) << "said once, when the page first settles";
  EXPECT_EQ(run(session_->settledStateIfKnown()), SessionState::linked());
  EXPECT_EQ(linesContaining("has not answered within"), 1);

  page_->probeAnswer = R"({"state":"needsLink"})";
  EXPECT_EQ(run(session_->refreshState()), SessionState::needsLink());
  EXPECT_FALSE(hostsSession()) << "only the QR code proves the phone is unlinked";
  page_->probeAnswer = "not json";
  EXPECT_EQ(describe(run(session_->refreshState())), "unrecognised — the page returned nothing this build could read");
  EXPECT_FALSE(hostsSession());
  page_->probeAnswer = R"({"state":"linked"})";
  run(session_->refreshState());
  EXPECT_TRUE(hostsSession());
}

TEST_F(WhatsAppSessionOnAManualClock, APageThatNeverBecameWhatsAppIsLoadedAgainAfter180sButNeverWhileDriven) {
  enable();
  page_->probeAnswer = unreadableAnswer;
  run(session_->load());
  run(session_->refreshState());
  pass(179s);
  run(session_->settledStateIfKnown());
  EXPECT_EQ(page_->loads.size(), 1u);
  pass(1s);
  std::function<asio::awaitable<int>()> body = std::bind(&loadsAfterAnInnerDrive, session_, page_);
  EXPECT_EQ(run(session_->drivingThePage(body)), 1) << "a send or an open is never interrupted";
  EXPECT_FALSE(session_->isDriving());
  EXPECT_EQ(run(session_->settledStateIfKnown()), std::nullopt) << "a new navigation forgets the old answer";
  EXPECT_EQ(page_->loads.size(), 2u);
  EXPECT_EQ(linesContaining("quarl: whatsapp web re-navigating — unreadable for 180s. A page that never became WhatsApp "
                            "is a navigation worth doing again."),
            1);

  page_->probeAnswer = R"({"state":"needsLink"})";
  run(session_->refreshState());
  pass(10000s);
  run(session_->settledStateIfKnown());
  EXPECT_EQ(page_->loads.size(), 2u) << "a QR screen waits for the owner, however long";
}

TEST_F(WhatsAppSessionOnAManualClock, ScriptsThatFailOrNeverAnswerAreSaidSoAndAPageThatCannotRunIsAState) {
  enable();
  EXPECT_EQ(run(session_->evaluate("window.nothingAnswers")), std::nullopt);
  EXPECT_EQ(linesContaining("quarl: whatsapp script failed: ReferenceError: nothing answers this script here"), 1);

  page_->asyncResult = {std::nullopt, "TypeError: x is not a function"};
  auto thrown = run(session_->evaluateReporting("return x();", {{"chatLimit", 6}}, std::nullopt));
  EXPECT_EQ(thrown.failure, "TypeError: x is not a function");
  EXPECT_EQ(linesContaining("quarl: whatsapp script failed to run: TypeError: x is not a function"), 1);
  EXPECT_EQ(page_->calls.back().second.at("chatLimit"), 6);

  page_->asyncResult = {R"({"stage":"read"})", std::nullopt};
  page_->asyncTakes = 200s;
  auto report = asio::co_spawn(io_, session_->evaluateReporting("return await slow();", {}, 180s), asio::use_future);
  runReady();
  pass(180s);
  ASSERT_EQ(report.wait_for(0s), std::future_status::ready);
  const auto late = report.get();
  EXPECT_EQ(late.answer, std::nullopt);
  EXPECT_EQ(late.failure, "the script had not answered after 180 seconds, so Quarl stopped waiting for it");
  page_->asyncResult = {R"({"stage":"late"})", std::nullopt};
  pass(20s);  // the page's answer comes after all, and is dropped
  page_->asyncTakes = 0s;
  page_->asyncResult = {R"({"stage":"fresh"})", std::nullopt};
  EXPECT_EQ(run(session_->evaluateReporting("return 1;", {}, 180s)).answer, R"({"stage":"fresh"})");

  auto refusing = std::make_shared<testing::FakeWhatsAppPage>();
  refusing->refusal = "this computer has no display and Xvfb is not installed";
  auto stranded = WhatsAppSession::create(io_.get_executor(), clock_, defaults_, refusing);
  EXPECT_EQ(describe(run(stranded->settledState())), "unrecognised — this computer has no display and Xvfb is not installed");
  EXPECT_EQ(stranded->unavailableReason(), refusing->refusal);
  EXPECT_TRUE(refusing->loads.empty());
  EXPECT_EQ(linesContaining("quarl: whatsapp web cannot run here — this computer has no display"), 1);
}

constexpr auto openedAda = R"({"ok":true,"openedRef":"447700900123@c.us","alreadyOpen":false})";
constexpr auto adaNotListed =
    R"({"ok":false,"reason":"not_in_list","rows":5,"walked":5,"how":{"chat":5},"anyFiber":true,"sameNumber":false})";
constexpr auto newPageAnswers = "String(!window.quarlLeftBehind && document.readyState === 'complete')";

TEST_F(WhatsAppSessionOnAManualClock, ASendTouchesThePageOnlyOnceTheChatIsOpenAndSaysWhatWentAndWhatDidNot) {
  using WhatsAppWeb::OutgoingFile;
  using Result = testing::FakeWhatsAppPage::ScriptResult;
  const std::string ada = "447700900123@c.us";
  enable();
  page_->probeAnswer = R"({"state":"needsLink"})";
  auto notLinked = asio::co_spawn(io_, session_->send(ada, "hi", {}, std::nullopt), asio::use_future);
  runReady();
  pass(WhatsAppWeb::settleDeadline);
  ASSERT_EQ(notLinked.wait_for(0s), std::future_status::ready) << "a page still loading is waited for, up to a point";
  EXPECT_EQ(notLinked.get().failure, WhatsAppWeb::notLinkedSentence);
  EXPECT_TRUE(page_->calls.empty());
  page_->probeAnswer = R"({"state":"linked"})";

  // Too big for WhatsApp: refused before the page is touched, and the words still go.
  page_->asyncAnswers = {Result{openedAda, std::nullopt}, Result{R"({"ok":true})", std::nullopt}};
  const auto big = run(session_->send(ada, "the words", {OutgoingFile{"big.mp4", "video/mp4", std::string(17 << 20, 'x')}},
                                      std::nullopt));
  EXPECT_TRUE(big.sent);
  EXPECT_THAT(big.note.value_or(""), ::testing::StartsWith("Quarl cannot put a 17 MB video/mp4 into WhatsApp"));
  ASSERT_EQ(page_->calls.size(), 2u) << "the open and the text, no file";
  EXPECT_THAT(page_->calls[1].first, HasSubstr("const body = 'the words';"));

  // Not in the list: once more through the number's link, and still not there: nothing typed.
  page_->calls.clear();
  page_->asyncAnswers = {Result{adaNotListed, std::nullopt}, Result{adaNotListed, std::nullopt}};
  page_->scriptAnswers[newPageAnswers] = {"false", "true"};
  auto missing = asio::co_spawn(io_, session_->send(ada, "hi", {}, std::string("Ada")), asio::use_future);
  runReady();
  pass(2s);
  ASSERT_EQ(missing.wait_for(0s), std::future_status::ready);
  EXPECT_EQ(missing.get().failure, "That WhatsApp conversation is not in the chat list on this Mac, so Quarl sent "
                                   "nothing. Open it once in WhatsApp and try again.");
  EXPECT_EQ(page_->loads.back(), "https://web.whatsapp.com/send?phone=447700900123");
  EXPECT_EQ(page_->calls.size(), 2u) << "two opens and no send";
  EXPECT_EQ(linesContaining("quarl: whatsapp: 447700900123@c.us is not in the list — using the deep link"), 1);
  EXPECT_EQ(linesContaining("quarl: whatsapp: could not open 447700900123@c.us (not_in_list) walked=5 how=chat 5, key 0, "
                            "prop 0, cell 0, descendant 0, none 0 anyFiber=true"),
            1);
  page_->calls.clear();
  page_->asyncAnswers = {Result{adaNotListed, std::nullopt}};
  run(session_->send("120363025@g.us", "hi", {}, std::nullopt));
  EXPECT_EQ(page_->calls.size(), 1u) << "a group has no link by number";

  // Files go first, one by one; words that then fail say the files had gone.
  page_->calls.clear();
  page_->scriptAnswers[std::string(WhatsAppWeb::mediaCountScript())] = {"0", "1", "1", "2"};
  page_->asyncAnswers = {Result{openedAda, std::nullopt}, Result{R"({"ok":true,"stage":"sent"})", std::nullopt},
                         Result{R"({"ok":true,"stage":"sent"})", std::nullopt},
                         Result{R"({"ok":false,"reason":"WhatsApp Web did not accept the send."})", std::nullopt}};
  const auto half = run(session_->send(ada, "caption", {OutgoingFile{"a.png", "image/png", "A"},
                                                        OutgoingFile{"b.pdf", "application/pdf", "B"}}, std::nullopt));
  EXPECT_EQ(half.failure, "WhatsApp Web did not accept the send. The 2 files had already been sent; only the message "
                          "itself did not go.");
  ASSERT_EQ(page_->calls.size(), 4u);
  EXPECT_EQ(page_->calls[1].second.at("fileName"), "a.png");
  EXPECT_EQ(page_->calls[2].second.at("fileName"), "b.pdf");

  // A file the page says went but that never shows in the conversation is not taken as sent.
  page_->calls.clear();
  page_->scriptAnswers[std::string(WhatsAppWeb::mediaCountScript())] = {"2"};
  page_->asyncAnswers = {Result{openedAda, std::nullopt}, Result{R"({"ok":true,"stage":"sent"})", std::nullopt}};
  auto unseen = asio::co_spawn(io_, session_->send(ada, "words", {OutgoingFile{"a.png", "image/png", "A"}}, std::nullopt),
                               asio::use_future);
  runReady();
  pass(25s);
  ASSERT_EQ(unseen.wait_for(0s), std::future_status::ready);
  EXPECT_THAT(unseen.get().failure.value_or(""), ::testing::StartsWith("Quarl pressed send on the file"));
  EXPECT_EQ(page_->calls.size(), 2u) << "no words after a file that did not go";
  EXPECT_EQ(linesContaining("quarl: whatsapp: media send could not be confirmed — reporting failure"), 1);
}

// The Mac's pasteboard as a test sets it: whether the owner is in the app, and whether staging
// works; it keeps what it was asked to do.
class FakePasteboard final : public PicturePasteboard {
 public:
  bool ownerIsInTheApp() override { return ownerIn; }
  std::optional<std::string> stagePicture(const WhatsAppWeb::OutgoingFile& file) override {
    staged.push_back(file.name);
    return stageFailure;
  }
  void pasteWithCommandV() override { ++pastes; }

  bool ownerIn = false;
  std::optional<std::string> stageFailure;
  std::vector<std::string> staged;
  int pastes = 0;
};

TEST_F(WhatsAppSessionOnAManualClock, APictureIsPastedOnlyWhenThePasteboardIsFreeAndIsAttachedOtherwise) {
  using WhatsAppWeb::OutgoingFile;
  using Result = testing::FakeWhatsAppPage::ScriptResult;
  auto pasteboard = std::make_shared<FakePasteboard>();
  auto session = WhatsAppSession::create(io_.get_executor(), clock_, defaults_, page_, pasteboard);
  enable();
  const auto sendOne = [&](OutgoingFile file) {
    page_->calls.clear();
    page_->asyncAnswers = {Result{openedAda, std::nullopt}, Result{R"({"ok":true,"stage":"sent"})", std::nullopt}};
    page_->scriptAnswers[std::string(WhatsAppWeb::mediaCountScript())] = {"0", "1"};
    EXPECT_TRUE(run(session->send("447700900123@c.us", "", {std::move(file)}, std::nullopt)).sent);
    return page_->calls.at(1).second.at("pasted").as_bool();
  };
  const OutgoingFile picture{"a.png", "image/png", "PNG"};

  EXPECT_TRUE(sendOne(picture));
  EXPECT_EQ(pasteboard->pastes, 1);
  EXPECT_EQ(linesContaining("quarl: whatsapp: pasted the picture with a real command-V"), 1);
  EXPECT_FALSE(sendOne(OutgoingFile{"a.pdf", "application/pdf", "PDF"}));
  EXPECT_EQ(linesContaining("quarl: whatsapp: the file is not an image the pasteboard can carry"), 1);
  pasteboard->ownerIn = true;
  EXPECT_FALSE(sendOne(picture));
  EXPECT_EQ(linesContaining("quarl: whatsapp: not pasting — he is in the app and it is his clipboard"), 1);
  pasteboard->ownerIn = false;
  pasteboard->stageFailure = "the pasteboard refused the data";
  EXPECT_FALSE(sendOne(picture));
  EXPECT_EQ(linesContaining("quarl: whatsapp: could not stage the picture for the pasteboard: the pasteboard refused the data"), 1);
  EXPECT_EQ(pasteboard->pastes, 1) << "pasted only the once";
}

}  // namespace
}  // namespace quarl

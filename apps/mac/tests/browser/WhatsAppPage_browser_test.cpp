#include <boost/json/parse.hpp>
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <thread>

#include "BrowserFixture.h"
#include "WhatsAppScripts.h"

namespace quarl {
namespace WhatsAppWeb {
void PrintTo(const SessionState& state, std::ostream* out) { *out << describe(state); }
}  // namespace WhatsAppWeb
namespace {

namespace asio = boost::asio;
namespace json = boost::json;
using namespace std::chrono_literals;
using ::testing::HasSubstr;
using WhatsAppWeb::SessionState;

const auto* const world = ::testing::AddGlobalTestEnvironment(new testing::BrowserWorld);
using testing::WhatsAppPageInWebKit;
using testing::BrowserWorld;

TEST_F(WhatsAppPageInWebKit, TheProbeReadsEveryScreenOfTheStandIn) {
  run(session_->load());
  EXPECT_EQ(probeUntil(SessionState::needsLink()), SessionState::needsLink());

  admin_.post("/admin/whatsapp/link");
  EXPECT_EQ(probeUntil(SessionState::linked()), SessionState::linked()) << "the phone scanned: syncing, then the chats";
  EXPECT_TRUE(defaults_->boolean(keys::whatsappHostsSession).value_or(false));

  evaluate("document.body.appendChild(document.createElement('div')).setAttribute('data-ref', 'x'); 1");
  EXPECT_EQ(run(session_->refreshState()), SessionState::linked()) << "a chat list wins over a leftover QR element";
  evaluate("document.querySelector('body > [data-ref]').remove(); 1");

  admin_.post("/admin/whatsapp/screen", json::object{{"screen", "evicted"}});
  EXPECT_EQ(probeUntil(SessionState::syncing()), SessionState::syncing()) << "the probe presses Use here itself";
  EXPECT_EQ(probeUntil(SessionState::linked()), SessionState::linked());
  EXPECT_GE(admin_.get("/admin/whatsapp").at("reclaimed").as_int64(), 1);

  admin_.post("/admin/whatsapp/screen", json::object{{"screen", "broken"}});
  const auto broken = probeUntil(SessionState::unrecognised("title=WhatsApp — Something went wrong"));
  EXPECT_EQ(WhatsAppWeb::describe(broken), "unrecognised — title=WhatsApp — Something went wrong");
  EXPECT_TRUE(defaults_->boolean(keys::whatsappHostsSession).value_or(false)) << "an unreadable page is no evidence";

  admin_.post("/admin/whatsapp/screen", json::object{{"screen", "link"}});
  EXPECT_EQ(probeUntil(SessionState::needsLink()), SessionState::needsLink());
  EXPECT_FALSE(defaults_->boolean(keys::whatsappHostsSession).value_or(true)) << "only a QR screen drops the latch";
  const auto code = evaluate(std::string(WhatsAppWeb::linkCodeScript()));
  EXPECT_EQ(code, admin_.get("/admin/whatsapp").at("ref").as_string());
}

TEST_F(WhatsAppPageInWebKit, ThePageBelievesItIsSeenAndItsWindowStaysParkedExceptWhileLinking) {
  run(session_->load());
  probeUntil(SessionState::needsLink());
  EXPECT_EQ(evaluate("JSON.stringify([document.hidden, document.visibilityState, document.webkitHidden])"),
            R"([false,"visible",false])");
  EXPECT_EQ(evaluate("window.heard = 0; document.addEventListener('visibilitychange', () => window.heard++);"
                     "document.dispatchEvent(new Event('visibilitychange')); String(window.heard)"),
            "0");

  const auto screens = run(page_->screenFrames());
  ASSERT_FALSE(screens.empty());
  EXPECT_TRUE(WhatsAppWeb::isParked(run(page_->windowOrigin()), WhatsAppWeb::webViewSize, screens));
  run(page_->placeWindow({100, 100}));
  for (int i = 0; i < 50 && !WhatsAppWeb::isParked(run(page_->windowOrigin()), WhatsAppWeb::webViewSize, screens); ++i) {
    pause(100ms);
  }
  EXPECT_TRUE(WhatsAppWeb::isParked(run(page_->windowOrigin()), WhatsAppWeb::webViewSize, screens))
      << "a window moved on screen is put back";
  EXPECT_EQ(log_->linesContaining("quarl: whatsapp host was on screen — parking it again"), 1);

  run(session_->showForLinking());
  pause(500ms);
  EXPECT_FALSE(WhatsAppWeb::isParked(run(page_->windowOrigin()), WhatsAppWeb::webViewSize, screens))
      << "while linking the window is meant to be seen";
  run(session_->endLinking());
  EXPECT_TRUE(WhatsAppWeb::isParked(run(page_->windowOrigin()), WhatsAppWeb::webViewSize, screens));
}

TEST_F(WhatsAppPageInWebKit, ThePageStaysOnItsSiteAndIsGivenNothing) {
  run(session_->load());
  probeUntil(SessionState::needsLink());
  const auto home = run(page_->currentUrl());
  const auto refusedLines = [&](const std::string& text) {
    for (int i = 0; i < 50 && log_->linesContaining(text) == 0; ++i) pause(100ms);
    return log_->linesContaining(text);
  };

  evaluate("location.href = 'http://elsewhere.invalid/'; 1");
  EXPECT_EQ(refusedLines("tried to leave its site"), 1);
  EXPECT_EQ(run(page_->currentUrl()), home);

  evaluate("String(window.open('" + home + "state'))");
  EXPECT_EQ(refusedLines("asked for a new window"), 1) << "even on its own site";

  evaluate("location.href = 'download'; 1");
  EXPECT_EQ(refusedLines("offered a download") + log_->linesContaining("started a download"), 1);
  EXPECT_EQ(run(page_->currentUrl()), home);

  auto realSession = WhatsAppSession::create(io_.get_executor(), std::make_shared<SystemClock>(), defaults_, page_);
  const auto asked = run(realSession->evaluateReporting(
      "return await Notification.requestPermission();", json::object{}, std::chrono::seconds(10)));
  EXPECT_EQ(asked.answer.value_or(asked.failure.value_or("")), "denied");
  EXPECT_EQ(refusedLines("asked to show notifications — refused"), 1);
  const auto located = run(realSession->evaluateReporting(
      "return await new Promise(done => navigator.geolocation.getCurrentPosition(() => done('given'), e => done('refused')));",
      json::object{}, std::chrono::seconds(10)));
  EXPECT_EQ(located.answer.value_or(located.failure.value_or("")), "refused");
  EXPECT_EQ(probeUntil(SessionState::needsLink()), SessionState::needsLink()) << "the page is still WhatsApp's";
}

TEST_F(WhatsAppPageInWebKit, ScriptsGetTheirArgumentsAndAFailureOrASilenceIsReportedNotWaitedOn) {
  run(session_->load());
  probeUntil(SessionState::needsLink());
  const auto echoed = run(session_->evaluateReporting(
      "return JSON.stringify({ name, count, flags, nested: nested.inner, nothing });",
      json::object{{"name", "Zoë \"quoted\"\n</script>"}, {"count", 3}, {"flags", json::array{true, false}},
                   {"nested", json::object{{"inner", 2.5}}}, {"nothing", nullptr}},
      std::nullopt));
  EXPECT_EQ(echoed.answer.value_or(echoed.failure.value_or("")), R"({"name":"Zoë \"quoted\"\n</script>","count":3,"flags":[true,false],"nested":2.5,"nothing":null})");

  const auto thrown = run(session_->evaluateReporting("throw new Error('the pane is gone');", json::object{}, std::nullopt));
  EXPECT_FALSE(thrown.answer);
  EXPECT_THAT(thrown.failure.value_or(""), HasSubstr("the pane is gone"));
  EXPECT_EQ(log_->linesContaining("quarl: whatsapp script failed to run:"), 1);

  // Waiting for a script runs on real time here: the page's own timers do.
  auto realSession = WhatsAppSession::create(io_.get_executor(), std::make_shared<SystemClock>(), defaults_, page_);
  const auto silent = run(realSession->evaluateReporting("await new Promise(done => setTimeout(() => done('late'), 3000)); return 'late';",
                                                         json::object{}, std::chrono::seconds(1)));
  EXPECT_FALSE(silent.answer) << "the late answer is dropped";
  EXPECT_EQ(silent.failure.value_or(""), "the script had not answered after 1 seconds, so Quarl stopped waiting for it");
  const auto next = run(realSession->evaluateReporting("return 'next';", json::object{}, std::chrono::seconds(5)));
  EXPECT_EQ(next.answer.value_or(""), "next") << "the next script gets its own answer";
}

TEST_F(WhatsAppPageInWebKit, AnUnreadablePageIsLoadedAgainAfterThreeMinutesButNeverWhileDriven) {
  admin_.post("/admin/whatsapp/screen", json::object{{"screen", "broken"}});
  run(session_->load());
  ASSERT_EQ(probeUntil(SessionState::unrecognised("title=WhatsApp — Something went wrong")).kind,
            SessionState::Kind::unrecognised);
  const auto loadsBefore = admin_.get("/admin/whatsapp").at("sessions").as_array().size();
  clock_->advance(179s);
  run(session_->settledStateIfKnown());
  EXPECT_EQ(log_->linesContaining("re-navigating"), 0);

  clock_->advance(1s);
  std::function<asio::awaitable<bool>()> drive = [this]() -> asio::awaitable<bool> {
    co_await session_->settledStateIfKnown();
    co_return true;
  };
  run(session_->drivingThePage<bool>(std::move(drive)));
  EXPECT_EQ(log_->linesContaining("re-navigating"), 0) << "never while a script drives the page";

  run(session_->settledStateIfKnown());
  EXPECT_EQ(log_->linesContaining("quarl: whatsapp web re-navigating — unreadable for 180s."), 1);
  for (int i = 0; i < 50 && admin_.get("/admin/whatsapp").at("sessions").as_array().size() == loadsBefore; ++i) pause(100ms);
  EXPECT_EQ(admin_.get("/admin/whatsapp").at("sessions").as_array().size(), loadsBefore + 1) << "the page was loaded again";
}

TEST_F(WhatsAppPageInWebKit, TheLinkKeptInCookiesSurvivesARestartOfTheHost) {
  const auto before = admin_.get("/admin/whatsapp").at("sessions").as_array().size();
  run(session_->load());
  probeUntil(SessionState::needsLink());
  session_.reset();
  page_.reset();

  page_ = std::make_shared<WhatsAppPageModule>(io_.get_executor(), folder_.path(), QUARL_PAGE_LIBRARY_PATH);
  session_ = WhatsAppSession::create(io_.get_executor(), clock_, defaults_, page_);
  run(session_->load());
  probeUntil(SessionState::needsLink());
  const auto sessions = admin_.get("/admin/whatsapp").at("sessions").as_array();
  ASSERT_EQ(sessions.size(), before + 2);
  EXPECT_EQ(sessions[before].as_string(), "") << "the first load had no cookie yet";
  EXPECT_NE(sessions[before + 1].as_string(), "") << "the second presented the one the first was given";
}

// One chat with a message of every kind the helpers tell apart, and one whose messages are only
// in its model, as a chat WhatsApp has not rendered.
json::object helperChats() {
  const std::string longText(200, 'w');
  const json::array messages{
      json::object{{"id", "3EB0A1"}, {"t", 1795000000}, {"body", "Hello :smile: there\nsecond line"}},
      json::object{{"id", "3EB0A2"}, {"t", 1795000060}, {"fromMe", true}, {"quoted", "Hello there"}, {"body", "Hi back"}},
      json::object{{"id", "3EB0A3"}, {"t", 1795000120}, {"body", longText}, {"collapsed", 40}},
      json::object{{"id", "3EB0A4"}, {"t", 1795000180}, {"body", "unseen"}, {"clockOnly", true}},
      json::object{{"id", "3EB0A5"}, {"t", 1795000240}, {"system", "Messages are end-to-end encrypted."}},
      json::object{{"id", "3EB0A6"}, {"t", 1795000300}, {"type", "ciphertext"}},
      json::object{{"id", "3EB0A7"}, {"t", 1795000360}, {"type", "image"}, {"mimetype", "image/png"}, {"size", 5},
                   {"blob", "aGVsbG8="}, {"caption", "a picture"}},
      json::object{{"id", "3EB0A8"}, {"t", 1795000420}, {"body", "Too deep"}, {"fiberDepth", 20}},
      json::object{{"id", "3EB0A9"}, {"t", 1795000440}, {"body", "10:25"}},
      json::object{{"id", "3EB0AB"}, {"t", 1795000450}, {"body", "The whole long message"}, {"collapsed", 8},
                   {"modelBody", "The whol…"}},
  };
  const json::array unrendered{
      json::object{{"id", "3EB0B1"}, {"t", 1795000500}, {"body", "only in the model"}},
      json::object{{"id", "3EB0B2"}, {"t", 1795000560}, {"type", "ciphertext"}},
  };
  return json::object{{"chats", json::array{
      json::object{{"id", "447700900123@c.us"}, {"title", "Ada"}, {"messages", messages}},
      json::object{{"id", "447700900456@c.us"}, {"title", "Grace"}, {"unread", 2}, {"messages", json::array{}},
                   {"modelOnly", unrendered}}}}};
}

// Opens Ada's chat by a press on its row, settles it, harvests it, and peeks at Grace's.
constexpr auto harvestBody = R"(
  const press = (title) => document.querySelector('#pane-side span[title="' + title + '"]').closest('[role="listitem"]');
  press('Ada').dispatchEvent(new MouseEvent('mousedown', { bubbles: true }));
  while (!document.querySelector('#main')) await quarlSleep(50);
  const state = quarlCounters();
  const settled = await quarlSettle(document.querySelector('#main'), state);
  const out = [];
  await quarlHarvest(out, state, { left: budget }, 'ada');
  quarlPeekChat(out, press('Grace'), 'grace', [], state);
  const counters = {};
  for (const [key, value] of Object.entries(state)) if (typeof value === 'number') counters[key] = value;
  return JSON.stringify({ settled, out, counters, waiting: state.waitingTags, peeked: state.peeked,
    jids: ['447700900123@c.us', '120363025@g.us', '12345@c.us', '1234@c.us', '447700900123-1612345678@g.us', 'x@lid',
      '447700900123@broadcast', 'status@broadcast', 12].map(quarlJid) });
)";

TEST_F(WhatsAppPageInWebKit, TheHelpersReadEveryKindOfMessageInEveryDatedMarkup) {
  admin_.post("/admin/whatsapp/chats", helperChats());
  for (const auto* markup : {"2023", "2025", "2026"}) {
    SCOPED_TRACE(markup);
    admin_.post("/admin/whatsapp/screen",
                json::object{{"screen", "linked"}, {"markup", markup}, {"rowsPerFrame", 2}, {"frameMs", 120}});
    reloadUntilChats();
    ASSERT_EQ(run(session_->refreshState()), SessionState::linked());
    const auto body = std::string(WhatsAppWeb::pageHelpersScript()) + harvestBody;
    const auto report = run(session_->evaluateReporting(body, json::object{{"budget", 1000}}, std::nullopt));
    ASSERT_TRUE(report.answer) << report.failure.value_or("");
    const auto read = json::parse(*report.answer).as_object();
    const auto& counters = read.at("counters").as_object();
    EXPECT_EQ(read.at("settled").as_int64(), 10) << "every row, though they came over several frames";

    std::map<std::string, json::object> byId;
    for (const auto& record : read.at("out").as_array()) {
      const auto id = std::string(record.at("id").as_string());
      byId[id.substr(id.rfind('_') == std::string::npos || id.size() < 7 ? 0 : id.find("3EB0"), 6)] = record.as_object();
    }
    EXPECT_EQ(byId["3EB0A1"].at("text"), "Hello 😄 there\nsecond line") << "emoji keep their text, breaks their line";
    EXPECT_EQ(byId["3EB0A1"].at("fromMe"), false);
    EXPECT_EQ(byId["3EB0A1"].at("conv"), "447700900123@c.us");
    EXPECT_EQ(byId["3EB0A1"].at("title"), "Ada");
    EXPECT_EQ(byId["3EB0A2"].at("text"), "Hi back") << "a swipe reply's quote is not its text";
    EXPECT_EQ(byId["3EB0A3"].at("text").as_string().size(), 200u) << "a collapsed bubble is read whole from its model";
    EXPECT_EQ(byId["3EB0AB"].at("text"), "The whol…") << "a model no longer than the bubble is no repair";
    EXPECT_EQ(byId["3EB0A9"].at("text"), "10:25") << "a time in a message's own words is its text";
    EXPECT_EQ(byId["3EB0A7"].at("text"), "a picture");
    EXPECT_EQ(byId["3EB0A7"].at("bytes").at("b64"), "aGVsbG8=") << "the file, from its blob: URL";
    EXPECT_EQ(byId.count("3EB0A4"), 0u) << "a clock is never a message's words";
    EXPECT_EQ(byId.count("3EB0A5"), 0u) << "a system line is no message";
    EXPECT_EQ(byId.count("3EB0A6"), 0u) << "an undecrypted row's placeholder is no message";
    EXPECT_EQ(counters.at("clockAsText").as_int64(), 1);
    EXPECT_EQ(counters.at("systemLines").as_int64(), 1);
    EXPECT_EQ(counters.at("ciphertextRows").as_int64(), 1);
    EXPECT_EQ(counters.at("collapsedRepaired").as_int64(), 1);
    EXPECT_EQ(counters.at("shortenedWithoutFullText").as_int64(), 1);
    EXPECT_EQ(counters.at("mediaBytes").as_int64(), 1);
    // A model too far up the fibres is not found. The older markups still tell the direction
    // from the row (its tail, or its legacy id read later); a bare id in the newest cannot.
    if (std::string_view(markup) == "2026") {
      EXPECT_EQ(byId.count("3EB0A8"), 0u);
      EXPECT_EQ(counters.at("noDirection").as_int64(), 1);
    } else {
      ASSERT_EQ(byId.count("3EB0A8"), 1u);
      EXPECT_EQ(byId["3EB0A8"].at("text"), "Too deep");
      EXPECT_EQ(byId["3EB0A8"].at("t"), nullptr) << "the time is the model's, which was not found";
      if (std::string_view(markup) == "2023") {
        EXPECT_EQ(byId["3EB0A8"].at("fromMe"), false);
      }
    }
    EXPECT_EQ(byId["3EB0B1"].at("text"), "only in the model");
    EXPECT_EQ(byId["3EB0B1"].at("peek"), true);
    EXPECT_EQ(counters.at("peekWaiting").as_int64(), 1);
    EXPECT_EQ(read.at("peeked"), json::array{"grace"});
    EXPECT_EQ(read.at("jids"), (json::array{"447700900123@c.us", "120363025@g.us", "12345@c.us", nullptr,
                                            "447700900123-1612345678@g.us", nullptr, nullptr, nullptr, nullptr}));
  }
  const auto opened = admin_.get("/admin/whatsapp").at("opened").as_array();
  EXPECT_EQ(std::count(opened.begin(), opened.end(), json::value("447700900456@c.us")), 0) << "a peek never opens a chat";
  EXPECT_EQ(std::count(opened.begin(), opened.end(), json::value("447700900123@c.us")), 3);

  admin_.post("/admin/whatsapp/screen", json::object{{"markup", "2026"}});
  reloadUntilChats();
  const auto body = std::string(WhatsAppWeb::pageHelpersScript()) + harvestBody;
  const auto report = run(session_->evaluateReporting(body, json::object{{"budget", 2}}, std::nullopt));
  ASSERT_TRUE(report.answer) << report.failure.value_or("");
  const auto overBudget = json::parse(*report.answer);
  for (const auto& record : overBudget.at("out").as_array()) {
    if (record.at("id") != "3EB0A7") continue;
    EXPECT_EQ(record.at("bytes").at("note"), "over this pass's transfer budget — it will be read on a later pass");
  }
}

// Nodes whose fibre chain holds the wanted props at a given place (1: the node's own fibre).
constexpr auto boundsBody = R"(
  const node = (place, props) => {
    const el = document.createElement('div');
    const first = { memoizedProps: {} };
    let fiber = first;
    for (let i = 1; i < place; i++) { fiber.return = { memoizedProps: {} }; fiber = fiber.return; }
    fiber.memoizedProps = props;
    el['__reactFiber$' + Math.random().toString(36).slice(2)] = first;
    return el;
  };
  const msg = { __x_id: { id: 'm' } };
  const chat = { __x_id: 'c' };
  return JSON.stringify([node(14, { msg }), node(15, { msg })].map(quarlMsgModel).map(Boolean)
    .concat([node(24, { chat }), node(25, { chat }), node(2, { chat: {} })].map(quarlChatModel).map(Boolean)));
)";

TEST_F(WhatsAppPageInWebKit, TheFibreWalksLookNoFurtherThanTheirBounds) {
  run(session_->load());
  probeUntil(SessionState::needsLink());
  const auto body = std::string(WhatsAppWeb::pageHelpersScript()) + boundsBody;
  const auto report = run(session_->evaluateReporting(body, json::object{}, std::nullopt));
  ASSERT_TRUE(report.answer) << report.failure.value_or("");
  // A message model on the 14th fibre and a chat model on the 24th are found, one further is not;
  // a chat without an id is no chat.
  EXPECT_EQ(json::parse(*report.answer), (json::array{true, false, true, false, false}));
}

}  // namespace
}  // namespace quarl

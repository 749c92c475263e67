#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include "../tests/support/ManualClock.h"
#include "../tests/support/RunAwaitable.h"
#include "WhatsAppAnswer.h"
#include "WhatsAppParking.h"
#include "WhatsAppScriptText.h"
#include "WhatsAppSessionState.h"

namespace quarl {
namespace {

namespace asio = boost::asio;
using namespace std::chrono_literals;
using namespace WhatsAppWeb;

const SessionState unreadable = SessionState::unrecognised("title=(none) — ");

TEST(WhatsAppWeb, TheLatchAndTheChannelFollowOnlyWhatProvesTheLinkAndTheProbeIsReadAsItSays) {
  EXPECT_FALSE(shouldAdvertise(SessionState::needsLink(), true));
  EXPECT_TRUE(shouldAdvertise(std::nullopt, true));
  EXPECT_FALSE(shouldAdvertise(SessionState::syncing(), false));
  EXPECT_TRUE(shouldAdvertise(unreadable, true));
  EXPECT_TRUE(shouldAdvertise(SessionState::linked(), false));
  EXPECT_TRUE(hostsSessionAfter(unreadable, true));
  EXPECT_FALSE(hostsSessionAfter(SessionState::needsLink(), true));
  EXPECT_TRUE(hostsSessionAfter(SessionState::linked(), false));
  EXPECT_FALSE(hostsSessionAfter(SessionState::syncing(), false));
  EXPECT_FALSE(shouldRenavigate(unreadable, 179.9s));
  EXPECT_TRUE(shouldRenavigate(unreadable, 180s));
  EXPECT_FALSE(shouldRenavigate(SessionState::needsLink(), 10000s));
  EXPECT_FALSE(shouldRenavigate(SessionState::syncing(), 10000s));
  EXPECT_TRUE(isSettled(SessionState::linked()));
  EXPECT_FALSE(isSettled(SessionState::syncing()));

  EXPECT_EQ(readSessionState(R"({"state":"linked"})"), SessionState::linked());
  EXPECT_EQ(readSessionState(R"({"state":"needsLink"})"), SessionState::needsLink());
  EXPECT_EQ(readSessionState(R"({"state":"syncing","reclaimed":true})"), SessionState::syncing());
  EXPECT_EQ(describe(readSessionState(R"({"state":"evicted","title":"WhatsApp","sample":"Use here"})")),
            "unrecognised — WhatsApp Web is open somewhere else — it allows one web session at a time. Close WhatsApp "
            "in your browser and Quarl takes it back.");
  EXPECT_EQ(describe(readSessionState(R"({"state":"unrecognised","title":"Error","sample":"Something went wrong"})")),
            "unrecognised — title=Error — Something went wrong");
  EXPECT_EQ(readSessionState(R"({"state":"unrecognised","sample":"blank"})"), SessionState::unrecognised("title=(none) — blank"));
  EXPECT_EQ(readSessionState(R"({"state":"unrecognised","title":"Whats\nApp ","sample":"\n  Loading\n\tchats  "})"),
            SessionState::unrecognised("title=Whats App — Loading chats"));
  for (const auto* nothing : {"", "null", "[]", R"({"state":3})", R"({"status":"linked"})", "linked"}) {
    EXPECT_EQ(readSessionState(nothing), SessionState::unrecognised("the page returned nothing this build could read")) << nothing;
  }
  EXPECT_EQ(describe(SessionState::needsLink()), "needsLink (waiting for a phone to scan the code)");
  EXPECT_EQ(describe(SessionState::syncing()), "syncing (WhatsApp is downloading this account's messages)");
}

TEST(WhatsAppWeb, ThePageStaysWithinTheOriginOfItsSite) {
  const std::string site = "https://web.whatsapp.com/";
  EXPECT_TRUE(isWithinSite("https://web.whatsapp.com/send?phone=123", site));
  EXPECT_TRUE(isWithinSite("HTTPS://WEB.whatsapp.com:443/", site));
  EXPECT_TRUE(isWithinSite("blob:https://web.whatsapp.com/5b1e-77", site));
  EXPECT_TRUE(isWithinSite("about:blank", site));
  EXPECT_FALSE(isWithinSite("http://web.whatsapp.com/", site)) << "another scheme is another origin";
  EXPECT_FALSE(isWithinSite("https://web.whatsapp.com:8443/", site));
  EXPECT_FALSE(isWithinSite("https://web.whatsapp.com.evil.example/", site));
  EXPECT_FALSE(isWithinSite("https://evil.example/?https://web.whatsapp.com/", site));
  EXPECT_FALSE(isWithinSite("blob:https://evil.example/5b1e", site));
  EXPECT_FALSE(isWithinSite("data:text/html,<p>hi</p>", site));
  EXPECT_FALSE(isWithinSite("javascript:alert(1)", site));
  EXPECT_FALSE(isWithinSite("not a url", site));
  EXPECT_TRUE(isWithinSite("http://127.0.0.1:8420/whatsapp/chat", "http://127.0.0.1:8420/whatsapp/"));
  EXPECT_FALSE(isWithinSite("http://127.0.0.1:8421/", "http://127.0.0.1:8420/whatsapp/"));
  EXPECT_FALSE(isWithinSite("https://web.whatsapp.com/", "")) << "a site that cannot be read admits nothing";
}

TEST(WhatsAppWeb, TheParkedWindowIsLeftOfAndBelowEveryScreen) {
  EXPECT_EQ(parkOrigin({}, webViewSize), (Point{-6100, -5800}));
  const std::vector<Rect> laptop{{{0, 0}, {1440, 900}}};
  EXPECT_EQ(parkOrigin(laptop, webViewSize), (Point{-2100, -1800}));
  EXPECT_TRUE(isParked({-2100, -1800}, webViewSize, laptop));
  EXPECT_FALSE(isParked({0, 0}, webViewSize, laptop));
  EXPECT_TRUE(isParked({0, 0}, webViewSize, {}));
  // A second screen left of and below the first moves the parking place with it.
  const std::vector<Rect> two{{{0, 0}, {1440, 900}}, {{-1920, -300}, {1920, 1080}}};
  EXPECT_EQ(parkOrigin(two, webViewSize), (Point{-4020, -2100}));
  EXPECT_FALSE(isParked({-2100, -1800}, webViewSize, {{{-1920, -1100}, {1920, 1080}}})) << "overlaps the second";
  EXPECT_TRUE(isParked({-1100, 0}, webViewSize, laptop)) << "touching an edge is not overlapping";
}

TEST(WhatsAppWeb, EscapedTextStaysOneLiteralWhateverItHolds) {
  EXPECT_EQ(escapeJS(R"(say "hi" it's \ ok)"), R"(say \"hi\" it\'s \\ ok)");
  EXPECT_EQ(escapeJS("one\ntwo\r\nthree"), "one\\ntwo\\r\\nthree");
  EXPECT_EQ(escapeJS("a\xE2\x80\xA8" "b\xE2\x80\xA9" "c"), "a\\u2028b\\u2029c");
  EXPECT_EQ(escapeJS("café 🎉 \xE2\x80\xA6"), "café 🎉 \xE2\x80\xA6") << "other characters pass as they are";
}

asio::awaitable<std::string> answerAfter(std::shared_ptr<testing::ManualClock> clock, std::chrono::seconds delay,
                                         std::string answer) {
  co_await clock->sleep(delay);
  co_return answer;
}

asio::awaitable<std::string> throwAfter(std::shared_ptr<testing::ManualClock> clock, std::chrono::seconds delay) {
  co_await clock->sleep(delay);
  throw std::runtime_error("the page went away");
}

TEST(WhatsAppWeb, TheFirstAnswerWinsAndALateOneIsDropped) {
  asio::io_context io;
  auto clock = std::make_shared<testing::ManualClock>(SystemTime(1'790'000'000s));
  const auto race = [&](std::optional<std::chrono::milliseconds> within, std::chrono::seconds workTakes,
                        std::chrono::seconds advanceBy) {
    std::optional<std::string> result;
    asio::co_spawn(io, firstAnswer<std::string>(clock, within, [] { return std::string("gave up"); },
                                                answerAfter(clock, workTakes, "answered")),
                   [&](std::exception_ptr, std::string answer) { result = answer; });
    io.restart();
    io.poll();
    std::optional<std::string> first;
    // On until the work too has ended, so that a late answer would have had its chance to land.
    for (int step = 0; step < 400; ++step) {
      clock->advance(advanceBy);
      io.restart();
      io.poll();
      if (result && !first) first = result;
    }
    EXPECT_EQ(result, first) << "the caller is resumed once";
    io.restart();
    EXPECT_EQ(io.run(), 0u) << "nothing waits on after both have answered";
    return result;
  };
  EXPECT_EQ(race(10s, 3s, 1s), "answered");
  EXPECT_EQ(race(10s, 30s, 1s), "gave up") << "the late answer is dropped";
  EXPECT_EQ(race(std::nullopt, 300s, 10s), "answered") << "no limit waits for the work";

  // A work that throws hands its exception to the caller, limit or none, instead of leaving it waiting.
  for (const auto within : {std::optional<std::chrono::milliseconds>(10s), std::optional<std::chrono::milliseconds>()}) {
    std::exception_ptr failed;
    bool resumed = false;
    asio::co_spawn(io, firstAnswer<std::string>(clock, within, [] { return std::string("gave up"); }, throwAfter(clock, 1s)),
                   [&](std::exception_ptr failure, std::string) {
                     failed = failure;
                     resumed = true;
                   });
    for (int step = 0; step < 20 && !resumed; ++step) {
      io.restart();
      io.poll();
      clock->advance(1s);
    }
    ASSERT_TRUE(failed);
    EXPECT_THROW(std::rethrow_exception(failed), std::runtime_error);
  }
}

}  // namespace
}  // namespace quarl

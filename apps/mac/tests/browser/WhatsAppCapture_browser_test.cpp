#include <algorithm>
#include <set>

#include "BrowserFixture.h"
#include "WhatsAppCapturePass.h"

namespace quarl {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;
using testing::WhatsAppPageInWebKit;
using WhatsAppWeb::CaptureInputs;
using WhatsAppWeb::ReadResult;

constexpr std::int64_t baseTime = 1795000000;

std::string ref(int n) { return "4477009001" + std::to_string(10 + n) + "@c.us"; }

// The key the page files a chat under: the hash of its id.
std::string keyOf(int n) { return WhatsAppWeb::messageTag(ref(n)).substr(1); }

// Chat n's last message was sent n minutes after the base: the highest number is the newest.
json::object chat(int n, json::array messages = {}) {
  if (messages.empty()) {
    messages.push_back(json::object{{"id", "3EB0C" + std::to_string(n)}, {"t", baseTime + 60 * n},
                                    {"body", "hello from chat " + std::to_string(n)}});
  }
  return json::object{{"id", ref(n)}, {"title", "Chat " + std::to_string(n)}, {"unread", 1}, {"messages", messages}};
}

json::object message(const std::string& id, std::int64_t t, const std::string& body) {
  return json::object{{"id", id}, {"t", t}, {"body", body}};
}

class CaptureInWebKit : public WhatsAppPageInWebKit {
 protected:
  void showChats(const char* markup, json::array chats, int visibleRows = 11) {
    admin_.post("/admin/whatsapp/chats", json::object{{"chats", std::move(chats)}, {"replace", true}});
    admin_.post("/admin/whatsapp/screen",
                json::object{{"screen", "linked"}, {"markup", markup}, {"visibleRows", visibleRows}});
    reloadUntilChats();
  }

  ReadResult pass(const std::vector<std::string>& known, std::vector<std::string> peek = {},
                  std::vector<std::string> spent = {}, std::int64_t cursor = 0) {
    CaptureInputs inputs;
    inputs.known = known;
    inputs.cursor = cursor;
    inputs.peek = std::move(peek);
    inputs.retriesSpent = std::move(spent);
    return run(reading_->readNew(std::move(inputs)));
  }

  std::multiset<std::string> opened() {
    std::multiset<std::string> refs;
    const auto standIn = admin_.get("/admin/whatsapp");
    for (const auto& each : standIn.at("opened").as_array()) refs.emplace(each.as_string());
    return refs;
  }

  // The stand-in's chat as the account now holds it.
  json::object accountChat(int n) {
    const auto standIn = admin_.get("/admin/whatsapp");
    for (const auto& each : standIn.at("chats").as_array()) {
      if (each.at("id") == json::value(ref(n))) return each.as_object();
    }
    return {};
  }

  void send(int n, json::array messages, bool modelOnly = false) {
    admin_.post("/admin/whatsapp/messages",
                json::object{{"chat", ref(n)}, {"messages", std::move(messages)}, {"modelOnly", modelOnly}});
    pause(600ms);  // the page polls its state every 250 ms
  }

  // The capture script runs against a real clock: its time limit must be able to pass.
  std::shared_ptr<WhatsAppSession> reading_ =
      WhatsAppSession::create(io_.get_executor(), std::make_shared<SystemClock>(), defaults_, page_);
};

std::set<std::string> idsOf(const ReadResult& result) {
  std::set<std::string> ids;
  for (const auto& each : result.messages) ids.insert(each.externalId);
  return ids;
}

TEST_F(CaptureInWebKit, OpensOnlyChangedChatsAndReadsTheRestWithoutOpeningInEveryDatedMarkup) {
  for (const auto* markup : {"2023", "2025", "2026"}) {
    SCOPED_TRACE(markup);
    showChats(markup, json::array{chat(1), chat(2), chat(3), chat(4), chat(5)});

    const auto first = pass({});
    ASSERT_EQ(first.stage, "firstLook") << first.summary();
    EXPECT_EQ(first.counts.opened, 3);
    EXPECT_EQ(opened(), (std::multiset<std::string>{ref(3), ref(4), ref(5)})) << "the newest three";
    EXPECT_EQ(idsOf(first), (std::set<std::string>{"3EB0C3", "3EB0C4", "3EB0C5"}));
    EXPECT_EQ(first.fingerprints.size(), 5u) << "the rest baselined, once";

    const auto quiet = pass(first.fingerprints);
    EXPECT_EQ(quiet.stage, "nothingChanged") << quiet.summary();
    EXPECT_EQ(opened().size(), 3u) << "a quiet pass presses nothing";

    send(1, json::array{message("3EB0D1", baseTime + 600, "are you there?")});
    const auto changed = pass(quiet.fingerprints);
    ASSERT_EQ(changed.stage, "read") << changed.summary();
    EXPECT_EQ(opened().count(ref(1)), 1u);
    EXPECT_EQ(changed.harvested, std::vector<std::string>{keyOf(1)});
    const auto found = std::find_if(changed.messages.begin(), changed.messages.end(),
                                    [](const auto& each) { return each.externalId == "3EB0D1"; });
    ASSERT_NE(found, changed.messages.end());
    EXPECT_EQ(found->text, "are you there?");
    EXPECT_EQ(found->conversationRef, ref(1));
    EXPECT_EQ(found->chatKey, keyOf(1));
    EXPECT_FALSE(found->isFromMe);
    EXPECT_FALSE(found->peeked);

    // Chat 2 was baselined unopened: a message WhatsApp holds only in its model is read from
    // there, the chat stays closed and its unread count stays as the phone shows it.
    send(2, json::array{message("3EB0D2", baseTime + 700, "only in memory")}, true);
    const auto peeked = pass(changed.fingerprints, {keyOf(2)});
    EXPECT_EQ(peeked.stage, "nothingChanged") << peeked.summary();
    EXPECT_EQ(peeked.peeked, std::vector<std::string>{keyOf(2)});
    EXPECT_TRUE(idsOf(peeked).contains("3EB0D2"));
    EXPECT_EQ(opened().count(ref(2)), 0u);
    EXPECT_EQ(accountChat(2).at("unread"), 1);
  }
}

TEST_F(CaptureInWebKit, AChatStillDecryptingIsOpenedAgainUntilItsWordsArrive) {
  showChats("2026", json::array{chat(1), chat(2)});
  auto known = pass({}).fingerprints;
  send(1, json::array{json::object{{"id", "3EB0E1"}, {"t", baseTime + 900}, {"type", "ciphertext"}}});

  const auto waiting = pass(known);
  ASSERT_EQ(waiting.stage, "read") << waiting.summary();
  EXPECT_EQ(waiting.counts.ciphertextRows, 1);
  EXPECT_EQ(waiting.heldBack, std::vector<std::string>{keyOf(1)});
  EXPECT_EQ(waiting.waitingTags.at(keyOf(1)), std::vector<std::string>{WhatsAppWeb::messageTag("3EB0E1")});
  WhatsAppWeb::PeekSchedule schedule;
  const auto now = SystemTime(std::chrono::seconds(baseTime + 1000));
  schedule.record(waiting, WhatsAppWeb::listedChats(waiting.fingerprints), now);
  EXPECT_EQ(schedule.due({keyOf(2), keyOf(1)}, now + std::chrono::seconds(61)).front(), keyOf(1)) << "the slow lane";

  const auto stillWaiting = pass(waiting.fingerprints);
  EXPECT_EQ(stillWaiting.harvested, std::vector<std::string>{keyOf(1)}) << "held back, so opened again";
  EXPECT_EQ(stillWaiting.heldBack, std::vector<std::string>{keyOf(1)});
  const auto spent = pass(waiting.fingerprints, {}, {keyOf(1)});
  EXPECT_TRUE(spent.heldBack.empty()) << "a spent retry budget lets the chat into the baseline";

  admin_.post("/admin/whatsapp/decrypt", json::object{{"id", "3EB0E1"}, {"body", "finally here"}});
  pause(600ms);
  const auto decrypted = pass(spent.fingerprints);
  EXPECT_TRUE(idsOf(decrypted).contains("3EB0E1")) << decrypted.summary();
}

TEST_F(CaptureInWebKit, NewRowsThatWillNotOpenTakeAtMostHalfTheBudgetAndAChangedRowLeftOverIsOpenedLater) {
  showChats("2025", json::array{chat(1), chat(2), chat(3), chat(4)});
  const auto first = pass({});
  json::array stubborn;
  for (int n = 11; n <= 16; ++n) {
    auto unopenable = chat(n, json::array{message("3EB0S" + std::to_string(n), baseTime + 3000 + n, "new")});
    unopenable["stubborn"] = true;
    stubborn.push_back(std::move(unopenable));
  }
  admin_.post("/admin/whatsapp/chats", json::object{{"chats", stubborn}});
  for (int n = 1; n <= 4; ++n) send(n, json::array{message("3EB0N" + std::to_string(n), baseTime + 2000 + n, "more")});

  const auto crowded = pass(first.fingerprints);
  EXPECT_EQ(crowded.counts.neverSelected, 3) << crowded.summary();
  EXPECT_EQ(crowded.counts.opened, 3) << "the rotation keeps its three";
  EXPECT_EQ(crowded.counts.deferred, 7) << "six new rows and one changed chat wait, unbaselined";
  const auto later = pass(crowded.fingerprints, {}, {}, WhatsAppWeb::cursorAfter(0, crowded));
  EXPECT_EQ(later.counts.opened, 1) << later.summary();
  std::set<std::string> read(crowded.harvested.begin(), crowded.harvested.end());
  read.insert(later.harvested.begin(), later.harvested.end());
  EXPECT_EQ(read, (std::set<std::string>{keyOf(1), keyOf(2), keyOf(3), keyOf(4)}));
}

TEST_F(CaptureInWebKit, ReadsTheTopOfAVirtualisedListScrolledAway) {
  json::array chats;
  for (int n = 1; n <= 20; ++n) chats.push_back(chat(n));
  showChats("2025", chats, 4);
  const auto first = pass({});
  EXPECT_EQ(first.fingerprints.size(), 4u) << "only the drawn rows exist";
  EXPECT_EQ(first.listed, (std::vector<std::string>{keyOf(20), keyOf(19), keyOf(18), keyOf(17)}));
  // The owner scrolled the list: rows further down are drawn now, and the top is gone.
  evaluate("document.querySelector('#pane-side').scrollTop = 720; 1");
  pause(300ms);
  ASSERT_EQ(evaluate("String(!!document.querySelector('#pane-side span[title=\"Chat 20\"]'))"), "false");

  send(1, json::array{message("3EB0F1", baseTime + 2000, "from far below the fold")});
  const auto moved = pass(first.fingerprints);
  EXPECT_EQ(moved.harvested, std::vector<std::string>{keyOf(1)}) << moved.summary();
  EXPECT_EQ(moved.listed.front(), keyOf(1));
  EXPECT_EQ(moved.fingerprints.size(), 5u) << "chat 17, pushed out of sight, stays known";
  EXPECT_TRUE(idsOf(moved).contains("3EB0F1"));
}

TEST_F(CaptureInWebKit, SaysWhatIsMissingRatherThanReportingAnEmptyInbox) {
  showChats("2026", json::array{});
  const auto empty = pass({});
  EXPECT_EQ(empty.stage, "noChatRows");
  EXPECT_FALSE(empty.ok);
  EXPECT_THAT(WhatsAppWeb::healthLines(empty), ::testing::ElementsAre(::testing::HasSubstr("has NO ROWS in it")));

  showChats("2026", json::array{json::object{{"id", ref(1)}, {"title", "Nobody"}, {"messages", json::array{}}}});
  const auto bare = pass({});
  EXPECT_EQ(bare.counts.openedEmpty, 1) << bare.summary();
  EXPECT_THAT(WhatsAppWeb::healthLines(bare), ::testing::Contains(::testing::HasSubstr("NOT ONE MESSAGE ROW")));

  admin_.post("/admin/whatsapp/screen", json::object{{"screen", "broken"}});
  pause(600ms);
  const auto elsewhere = pass({});
  EXPECT_EQ(elsewhere.stage, "chatListMissing");
  EXPECT_THAT(WhatsAppWeb::healthLines(elsewhere), ::testing::ElementsAre(::testing::HasSubstr("not showing the chat list")));
}

}  // namespace
}  // namespace quarl

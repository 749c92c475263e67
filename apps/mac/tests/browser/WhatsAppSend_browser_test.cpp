#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/use_future.hpp>

#include "BrowserFixture.h"
#include "Sha256.h"
#include "WhatsAppSend.h"

namespace quarl {
namespace {

namespace asio = boost::asio;
namespace json = boost::json;
using namespace std::chrono_literals;
using ::testing::HasSubstr;
using testing::WhatsAppPageInWebKit;
using WhatsAppWeb::OutgoingFile;
using WhatsAppWeb::SendOutcome;

constexpr std::int64_t baseTime = 1795000000;

std::string ref(int n) { return "4477009002" + std::to_string(10 + n) + "@c.us"; }

json::object chat(int n) {
  return json::object{{"id", ref(n)},
                      {"title", "Chat " + std::to_string(n)},
                      {"messages", json::array{json::object{{"id", "3EB0D" + std::to_string(n)},
                                                            {"t", baseTime + 60 * n},
                                                            {"body", "hello from chat " + std::to_string(n)}}}}};
}

// Every byte value, so that nothing on the way treats the file as text.
std::string everyByte(std::size_t length) {
  std::string bytes;
  for (std::size_t i = 0; i < length; ++i) bytes.push_back(static_cast<char>(i % 256));
  return bytes;
}

class SendInWebKit : public WhatsAppPageInWebKit {
 protected:
  void showChats(const char* markup, json::array chats, json::object tuning = {}) {
    admin_.post("/admin/whatsapp/chats", json::object{{"chats", std::move(chats)}, {"replace", true}});
    json::object screen{{"screen", "linked"}, {"markup", markup}, {"visibleRows", 6}, {"sendIgnored", false},
                        {"sendBreaksJson", false}, {"attach", nullptr}, {"accept", nullptr}, {"preview", nullptr}};
    for (const auto& [key, value] : tuning) screen[key] = value;
    admin_.post("/admin/whatsapp/screen", screen);
    reloadUntilChats();
  }

  void tune(json::object tuning) {
    admin_.post("/admin/whatsapp/screen", tuning);
    pause(600ms);  // the page polls its state every 250 ms
  }

  SendOutcome send(const std::string& to, const std::string& body, std::vector<OutgoingFile> files = {},
                   std::optional<std::string> name = std::nullopt) {
    return run(sending_->send(to, body, std::move(files), std::move(name)));
  }

  json::array sent() {
    const auto standIn = admin_.get("/admin/whatsapp");
    return standIn.at("sent").as_array();
  }

  int timesOpened(const std::string& chatRef) {
    const auto standIn = admin_.get("/admin/whatsapp");
    const auto& opened = standIn.at("opened").as_array();
    return static_cast<int>(std::count(opened.begin(), opened.end(), json::value(chatRef)));
  }

  std::size_t pageLoads() {
    const auto standIn = admin_.get("/admin/whatsapp");
    return standIn.at("sessions").as_array().size();
  }

  // Sends run against a real clock: the waits for the page's answers must be able to pass.
  std::shared_ptr<WhatsAppSession> sending_ =
      WhatsAppSession::create(io_.get_executor(), std::make_shared<SystemClock>(), defaults_, page_);
};

json::object textSent(const std::string& chatRef, const std::string& text) {
  return json::object{{"chat", chatRef}, {"text", text}};
}

TEST_F(SendInWebKit, FindsTheConversationWhereverItIsAndSendsIntoNoOther) {
  json::array chats;
  for (int n = 1; n <= 14; ++n) chats.push_back(chat(n));
  auto archived = chat(20);
  archived["title"] = "Archie Vault";
  archived["archived"] = true;
  chats.push_back(archived);
  auto misleading = chat(21);
  misleading["opensInstead"] = ref(14);
  chats.push_back(misleading);
  // The number 447700900555 under the linked id WhatsApp now files it by.
  chats.push_back(json::object{{"id", "447700900555@lid"}, {"title", "Renamed"}, {"messages", json::array{}}});
  showChats("2026", std::move(chats));

  EXPECT_TRUE(send(ref(14), "first").sent);
  EXPECT_TRUE(send(ref(14), "second").sent) << "the chat is already open";
  EXPECT_EQ(timesOpened(ref(14)), 1) << "an open chat is never pressed again";

  const auto walked = send(ref(1), "found below the fold");
  EXPECT_TRUE(walked.sent) << walked.failure.value_or("") << log_->text();
  const auto searched = send(ref(20), "found by its name", {}, "Archie Vault");
  EXPECT_TRUE(searched.sent) << searched.failure.value_or("") << log_->text();
  const auto linked = send("447700900999@c.us", "a number nobody listed");
  EXPECT_TRUE(linked.sent) << linked.failure.value_or("") << log_->text();
  EXPECT_EQ(log_->linesContaining("quarl: whatsapp: 447700900999@c.us is not in the list — using the deep link"), 1);

  const auto wrong = send(ref(21), "must not arrive anywhere");
  EXPECT_EQ(wrong.failure, "Quarl opened the wrong WhatsApp conversation and stopped rather than send your reply to the "
                           "wrong people. Nothing was sent. Try again.");
  const auto renamed = send("447700900555@c.us", "must not arrive either");
  EXPECT_THAT(renamed.failure.value_or(""), ::testing::StartsWith("Quarl found that conversation on this Mac but "
                                                                   "WhatsApp has given it a new internal id"));
  EXPECT_EQ(log_->linesContaining("quarl: whatsapp: could not open 447700900555@c.us"), 1);

  EXPECT_EQ(sent(), (json::array{textSent(ref(14), "first"), textSent(ref(14), "second"),
                                 textSent(ref(1), "found below the fold"), textSent(ref(20), "found by its name"),
                                 textSent("447700900999@c.us", "a number nobody listed")}));
}

TEST_F(SendInWebKit, ASendIsNeverAssumedAndNeverInterrupted) {
  showChats("2025", json::array{chat(1), chat(2)}, json::object{{"sendIgnored", true}});
  const auto stuck = send(ref(1), "this stays in the box");
  EXPECT_EQ(stuck.failure, "WhatsApp Web did not accept the send. The reply is still in the message box.");
  EXPECT_THAT(log_->text(), HasSubstr("quarl: whatsapp: the message box as the send found it:"));

  showChats("2025", json::array{chat(1), chat(2)}, json::object{{"sendBreaksJson", true}});
  const auto unreadable = send(ref(2), "went, but nobody can say so");
  EXPECT_EQ(unreadable.failure, "Quarl could not tell whether WhatsApp Web sent that. Nothing is assumed.");
  EXPECT_EQ(sent(), json::array{textSent(ref(2), "went, but nobody can say so")}) << "the page did send it";

  showChats("2025", json::array{chat(1), chat(2)});
  const auto loads = pageLoads();
  auto sending = asio::co_spawn(io_, sending_->send(ref(1), "not cut short", {}, std::nullopt), asio::use_future);
  io_.restart();
  io_.run_for(300ms);
  ASSERT_TRUE(sending_->isDriving());
  asio::co_spawn(io_, sending_->renavigate("asked for in the middle of a send"), asio::detached);
  while (sending.wait_for(0s) != std::future_status::ready) io_.run_for(100ms);
  EXPECT_TRUE(sending.get().sent);
  EXPECT_EQ(pageLoads(), loads) << "the page was not loaded again under the send";
  EXPECT_EQ(log_->linesContaining("re-navigating — asked for in the middle of a send"), 0);
}

TEST_F(SendInWebKit, FilesGoThroughTheAttachMenuWithTheirOwnBytesBeforeTheText) {
  const auto picture = everyByte(70000);
  const auto document = "%PDF-1.4\n" + everyByte(3000);
  for (const auto* markup : {"2023", "2026"}) {
    SCOPED_TRACE(markup);
    showChats(markup, json::array{chat(1), chat(2)});
    const auto outcome = send(ref(2), "here they are",
                              {OutgoingFile{"photo.png", "image/png", picture},
                               OutgoingFile{"report.pdf", "application/pdf", document}});
    ASSERT_TRUE(outcome.sent) << outcome.failure.value_or("") << log_->text();
    const auto received = sent();
    ASSERT_EQ(received.size(), 3u) << received;
    EXPECT_EQ(received[0].at("file"), "photo.png");
    EXPECT_EQ(received[0].at("sha256"), json::value(sha256Hex(picture)));
    EXPECT_EQ(received[1].at("file"), "report.pdf");
    EXPECT_EQ(received[1].at("type"), "application/pdf");
    EXPECT_EQ(received[1].at("sha256"), json::value(sha256Hex(document)));
    EXPECT_EQ(received[2], textSent(ref(2), "here they are"));
  }
}

TEST_F(SendInWebKit, EachStageOfAFileSendFailsWithItsOwnSentenceAndTheTextStaysBehind) {
  const OutgoingFile picture{"photo.png", "image/png", everyByte(5000)};
  const OutgoingFile pdf{"report.pdf", "application/pdf", "%PDF-1.4 " + everyByte(500)};
  struct Variant {
    json::object tuning;
    OutgoingFile file;
    std::string sentence;
  };
  const std::vector<Variant> variants{
      {{}, OutgoingFile{"empty.png", "image/png", ""}, "The file arrived empty, so nothing was sent."},
      {{{"attach", "none"}}, picture,
       "WhatsApp Web has changed and Quarl could not find the attach button, so the file was not sent."},
      {{{"attach", "noInput"}}, picture,
       "Quarl opened WhatsApp's attach menu and no file picker appeared, so the file was not sent."},
      {{{"accept", "image/*"}}, pdf, "WhatsApp Web will not take a application/pdf from this Mac, so nothing was sent."},
      {{{"preview", "none"}}, picture,
       "WhatsApp Web did not offer to send the file after Quarl attached it, so nothing was sent. (The picker held 1 "
       "file(s) afterwards."},
      {{{"preview", "sticks"}}, picture,
       "Quarl attached the file and pressed send, and WhatsApp Web still has it waiting. Nothing is assumed to have "
       "gone. (pressed: the send button, Enter."},
  };
  showChats("2026", json::array{chat(1)});
  for (const auto& variant : variants) {
    SCOPED_TRACE(variant.sentence);
    json::object tuning{{"attach", nullptr}, {"accept", nullptr}, {"preview", nullptr}};
    for (const auto& [key, value] : variant.tuning) tuning[key] = value;
    tune(tuning);
    const auto outcome = send(ref(1), "the words wait for the file", {variant.file, picture});
    EXPECT_FALSE(outcome.sent);
    EXPECT_THAT(outcome.failure.value_or(""), ::testing::StartsWith(variant.sentence));
    EXPECT_THAT(outcome.failure.value_or(""), ::testing::EndsWith(" Nothing was sent — this was the first of 2 files."));
    // Leave the preview a stuck variant left open.
    evaluate("document.querySelectorAll('[role=\"dialog\"]').forEach(function (d) { d.remove(); }); 1");
  }
  EXPECT_EQ(sent(), json::array{}) << "no file and no words went";
}

}  // namespace
}  // namespace quarl

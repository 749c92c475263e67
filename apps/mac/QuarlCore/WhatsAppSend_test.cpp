#include "WhatsAppSend.h"

#include <gmock/gmock.h>

namespace quarl::WhatsAppWeb {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(WhatsAppSendRules, OnlyOneToOneChatsHaveANumberAndALink) {
  EXPECT_EQ(conversationURL("447700900123@c.us"), "https://web.whatsapp.com/send?phone=447700900123");
  EXPECT_EQ(conversationURL("447700900123@s.whatsapp.net", "http://127.0.0.1:9/whatsapp"),
            "http://127.0.0.1:9/whatsapp/send?phone=447700900123");
  EXPECT_EQ(conversationURL("447700900123-1600000000@g.us"), std::nullopt);
  EXPECT_EQ(conversationURL("98765432101234@lid"), std::nullopt);
  EXPECT_EQ(conversationURL("+447700900123"), std::nullopt);
  EXPECT_EQ(conversationURL("4477x@c.us"), std::nullopt);
  EXPECT_EQ(senderPhone("447700900123@c.us"), "+447700900123");
  EXPECT_EQ(senderPhone("447700900123-1600000000@g.us"), std::nullopt);
}

TEST(WhatsAppSendRules, AnOpenIsBelievedOnlyWhenThePageNamesTheChatItOpened) {
  const auto already = readOpenOutcome(R"({"ok":true,"openedRef":"1@c.us","alreadyOpen":true})");
  EXPECT_TRUE(already.readable && already.ok && already.alreadyOpen);
  EXPECT_FALSE(readOpenOutcome(R"({"ok":true})").readable) << "ok without the chat it opened";
  for (const auto* unreadable : {"", "null", "[]", "{\"ok\":\"yes\"}", "{\"reason\":\"no_chat_list\"}"}) {
    EXPECT_EQ(openFailureSentence(readOpenOutcome(unreadable)),
              "Quarl could not confirm that the right WhatsApp conversation was open, so it sent nothing. Open the "
              "conversation in WhatsApp and try again.")
        << unreadable;
  }
  const auto report = readOpenOutcome(
      R"({"ok":false,"reason":"not_in_list","rows":11,"walked":40,"pages":15,"grew":14,"sameNumber":false,
          "how":{"chat":0,"key":2,"prop":0,"cell":38,"descendant":0,"none":1},"propKeys":["chatId","style"],
          "anyFiber":true,"searched":{"tried":true,"box":true,"rows":2},"want":"1@c.us"})");
  EXPECT_EQ(report.how.summary(), "chat 0, key 2, prop 0, cell 38, descendant 0, none 1");
  EXPECT_EQ(report.propKeys, (std::vector<std::string>{"chatId", "style"}));
  EXPECT_EQ(openFailureSentence(report),
            "That WhatsApp conversation is not in the chat list on this Mac, so Quarl sent nothing. Open it once in "
            "WhatsApp and try again. (Quarl looked through 40 conversations and searched by name: 2 result(s), none "
            "of them this conversation.)");
}

TEST(WhatsAppSendRules, EveryFailedOpenSaysWhyNothingWasSent) {
  const OpenOutcome::Search none;
  EXPECT_THAT(openFailureSentence("no_chat_list", 0, false, false, none),
              StartsWith("Quarl could not read the WhatsApp chat list on this Mac, so it sent nothing."));
  EXPECT_THAT(openFailureSentence("opened_the_wrong_chat", 3, false, true, none),
              HasSubstr("stopped rather than send your reply to the wrong people. Nothing was sent."));
  EXPECT_THAT(openFailureSentence("no_press_target", 3, false, true, none),
              StartsWith("Quarl could not open that WhatsApp conversation on this Mac, so it sent nothing."));
  // Digits seen under another id outrank every other reading of a list that lacks the chat.
  EXPECT_THAT(openFailureSentence("not_in_list", 0, true, true, none),
              StartsWith("Quarl found that conversation on this Mac but WhatsApp has given it a new internal id, so "
                         "it did not send. Open it once in WhatsApp and try again — "));
  EXPECT_THAT(openFailureSentence("not_in_list", 0, false, true, none),
              StartsWith("Quarl could not tell which conversation any row in the chat list belongs to, so it sent "
                         "nothing rather than risk the wrong one. This needs a Quarl update"));
  EXPECT_EQ(openFailureSentence("not_in_list", 0, false, false, none),
            "Quarl could not read WhatsApp Web's chat list on this Mac — the page has changed in a way this build does "
            "not understand, so it sent nothing rather than risk the wrong conversation. This needs a Quarl update, "
            "not anything from you.");
  EXPECT_EQ(openFailureSentence("not_in_list", 12, false, true, none),
            "That WhatsApp conversation is not in the chat list on this Mac, so Quarl sent nothing. Open it once in "
            "WhatsApp and try again.");
  EXPECT_THAT(openFailureSentence("not_in_list", 12, false, true, OpenOutcome::Search{true, false, 0}),
              EndsWith("could not find WhatsApp's search box to search by name.)"));
}

TEST(WhatsAppSendRules, ASendIsNeverAssumed) {
  EXPECT_TRUE(readSendOutcome(R"({"ok":true})").sent);
  const auto stuck = readSendOutcome(R"({"ok":false,"reason":"WhatsApp Web did not accept the send."})");
  EXPECT_FALSE(stuck.sent);
  EXPECT_EQ(stuck.failure, "WhatsApp Web did not accept the send.");
  for (const std::optional<std::string>& unreadable : {std::optional<std::string>(), std::optional<std::string>(""),
                                                       std::optional<std::string>("true"),
                                                       std::optional<std::string>(R"({"ok":"true"})")}) {
    const auto outcome = readSendOutcome(unreadable);
    EXPECT_FALSE(outcome.sent);
    EXPECT_EQ(outcome.failure, "Quarl could not tell whether WhatsApp Web sent that. Nothing is assumed.");
  }

  EXPECT_TRUE(readMediaSendOutcome(R"({"ok":true,"stage":"sent"})").ok);
  EXPECT_FALSE(readMediaSendOutcome(R"({"ok":true,"stage":"preview"})").ok) << "a stage short of sent is not a send";
  EXPECT_FALSE(readMediaSendOutcome(R"({"ok":true})").ok);
  const auto stopped = readMediaSendOutcome(R"({"ok":false,"stage":"fileInput","reason":"no picker"})");
  EXPECT_EQ(stopped.stage, MediaSendStage::fileInput);
  EXPECT_EQ(stopped.reason, "no picker");
  EXPECT_EQ(readMediaSendOutcome(std::string("{")).stage, std::nullopt);
}

TEST(WhatsAppSendRules, FileSentencesSayWhatWentAndWhatDidNot) {
  EXPECT_EQ(mediaFailureSentence(1, 1, "It failed."), "It failed.");
  EXPECT_EQ(mediaFailureSentence(1, 1, std::nullopt), "WhatsApp Web did not say why.");
  EXPECT_EQ(mediaFailureSentence(1, 3, "It failed."), "It failed. Nothing was sent — this was the first of 3 files.");
  EXPECT_EQ(mediaFailureSentence(2, 3, "It failed."),
            "It failed. File 2 of 3 did not go: those before it were sent, and the message itself was not.");
  EXPECT_EQ(filesWentTextDidNot(2, "WhatsApp Web did not accept the send."),
            "WhatsApp Web did not accept the send. The 2 files had already been sent; only the message itself did not "
            "go.");
  EXPECT_THAT(filesWentTextDidNot(1, "No."), HasSubstr("The file had already been sent;"));

  EXPECT_EQ(outgoingMediaRefusal(outgoingMediaCapBytes, "video/mp4"), std::nullopt);
  EXPECT_EQ(outgoingMediaRefusal(17 * 1048576, "video/mp4"),
            "Quarl cannot put a 17 MB video/mp4 into WhatsApp from this Mac — the limit is 16 MB, so send that file in "
            "WhatsApp yourself; anything else in this reply went without the file.");
  EXPECT_THAT(outgoingMediaRefusal(outgoingMediaCapBytes + 1, "image/png").value_or(""),
              StartsWith("Quarl cannot put a 16 MB image/png"));
  EXPECT_THAT(outgoingMediaRefusal(16 * 1048576 + 524288, "application/pdf").value_or(""), HasSubstr("a 16.5 MB"));
}

TEST(WhatsAppSendRules, ScriptsCarryTheirValuesAsLiterals) {
  const auto open = openConversationScript("1@c.us", std::string("O'Brien \"Bob\"\n"));
  EXPECT_THAT(open, HasSubstr("const want = '1@c.us';\nconst wantName = 'O\\'Brien \\\"Bob\\\"\\n';"));
  EXPECT_THAT(openConversationScript("1@c.us", std::nullopt), HasSubstr("const wantName = null;"));
  EXPECT_THAT(sendScript("1@c.us", "line one\nline two\\"), HasSubstr("const body = 'line one\\nline two\\\\';"));
  const OutgoingFile file{"a.png", "image/png", std::string("\0\xff", 2)};
  EXPECT_EQ(file.arguments().at("fileB64"), "AP8=");
}

}  // namespace
}  // namespace quarl::WhatsAppWeb

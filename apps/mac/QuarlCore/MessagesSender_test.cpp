#include "MessagesSender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "../tests/support/MessagesScript.h"
#include "RelaySendLedger.h"

namespace quarl {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;
const ReplyService overIMessage{false, ReplyService::theChannelsOwnService};
const ReplyService overSMS{true, ReplyService::theChannelsOwnService};

TEST(MessagesSender, AnyBodyComesBackExactlyFromTheScriptsLiteral) {
  const std::vector<std::string> pieces = {"\"", "\\", "\n", "\r", "\r\n", "\xE2\x80\xA8", "🎉", "", " ", "a",
                                           "é", "\" & return & \"", "\\\"", "\n\n", "end tell", "&"};
  std::mt19937 random(42);
  std::uniform_int_distribution<std::size_t> pick(0, pieces.size() - 1);
  std::uniform_int_distribution<int> length(0, 12);
  for (int i = 0; i < 500; ++i) {
    std::string body;
    for (int n = length(random); n > 0; --n) body += pieces[pick(random)];
    const auto parsed = testing::parseMessagesScript(MessagesSender::script("+15550001", body, overIMessage, std::nullopt));
    ASSERT_TRUE(parsed) << body;
    auto stored = body;  // AppleScript's `return` is a carriage return
    std::replace(stored.begin(), stored.end(), '\n', '\r');
    EXPECT_EQ(parsed->body, stored);
    EXPECT_EQ(RelaySendLedger::bodyDigest(parsed->body), RelaySendLedger::bodyDigest(body))
        << "the ledger knows the stored row by the job's words";
    EXPECT_EQ(parsed->target + " " + parsed->serviceType, "+15550001 iMessage");
  }
  const auto file = testing::parseMessagesScript(
      MessagesSender::fileScript("x\"y@example.com", "/tmp/a \"b\".png", overSMS, std::nullopt));
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->isFile);
  EXPECT_EQ(file->body, "/tmp/a \"b\".png");
  EXPECT_EQ(file->target, "x\"y@example.com") << "a target cannot break out of its literal";
  EXPECT_EQ(file->serviceType, "SMS");
}

TEST(MessagesSender, GroupsAreAddressedByChatIdAndFailuresTellWhatWentAndWhatDidNot) {
  EXPECT_TRUE(MessagesSender::isGroup("chat123456", std::nullopt) && MessagesSender::isGroup("+15550001", "any;+;chat99"));
  EXPECT_FALSE(MessagesSender::isGroup("chat12a", std::nullopt) || MessagesSender::isGroup("chat", std::nullopt) ||
               MessagesSender::isGroup("chat123456", "any;-;chat123456"));
  const auto script = MessagesSender::script("chat123456", "hi", overSMS, std::nullopt);
  const auto group = testing::parseMessagesScript(script);
  ASSERT_TRUE(group);
  EXPECT_TRUE(group->isGroup);
  EXPECT_EQ(group->target, "chat123456");
  EXPECT_THAT(script, HasSubstr("    if targetChat is missing value then\n"
                                "      error \"Quarl: no Messages group matches chat123456\"\n"));
  ChildOutcome outcome{true, false, 1, "", "execution error: Quarl: no Messages group matches chat1 (-2700)"};
  EXPECT_EQ(MessagesSender::failureOf(outcome, "chat1")->description(), "Messages has no conversation with chat1 any more.");

  // Stages and failures tell what went and what did not.
  using Failure = MessagesSender::Failure;
  const Failure failed(Failure::Kind::scriptFailed, "boom");
  EXPECT_EQ((MessagesSender::StagedFailure{MessagesSender::Stage{0, 2}, failed}).description(),
            "the files went but the message did not: Messages could not send that: boom");
  EXPECT_EQ((MessagesSender::StagedFailure{MessagesSender::Stage{0, 0}, failed}).description(),
            "Messages could not send that: boom");
  const auto failureOf = [](ChildOutcome child) { return MessagesSender::failureOf(child, "+1"); };
  EXPECT_EQ(failureOf({true, false, 1, "", "  syntax error \n"})->description(), "Messages could not send that: syntax error");
  EXPECT_EQ(failureOf({true, true, std::nullopt, "", ""})->kind(), Failure::Kind::timedOut);
  EXPECT_EQ(failureOf({true, false, 0, "", ""}), std::nullopt);
}

TEST(ChildProcess, InputOutputExitAndAChildThatWillNotStop) {
  const auto echoed = runChild("/bin/sh", {"-c", "cat; echo oops >&2; exit 3"}, "script text", 5s, 1s);
  EXPECT_TRUE(echoed.started && !echoed.timedOut);
  EXPECT_EQ(echoed.output, "script text");
  EXPECT_EQ(echoed.errors, "oops\n");
  EXPECT_EQ(echoed.exitCode, 3);

  const auto big = std::string(1 << 20, 'x');
  EXPECT_EQ(runChild("/bin/sh", {"-c", "wc -c"}, big, 5s, 1s).output.find("1048576"), 0u) << "input larger than a pipe";
  EXPECT_EQ(runChild("/bin/sh", {"-c", "exit 0"}, big, 5s, 1s).exitCode, 0) << "a child that never reads";

  const auto started = std::chrono::steady_clock::now();
  const auto stubborn = runChild("/bin/sh", {"-c", "trap '' TERM; while :; do sleep 0.05; done"}, "", 300ms, 300ms);
  EXPECT_TRUE(stubborn.timedOut);
  EXPECT_EQ(stubborn.exitCode, std::nullopt);
  EXPECT_LT(std::chrono::steady_clock::now() - started, 5s) << "killed after the grace";
  EXPECT_FALSE(runChild("/nonexistent/osascript", {}, "", 1s, 1s).started);
}

}  // namespace
}  // namespace quarl

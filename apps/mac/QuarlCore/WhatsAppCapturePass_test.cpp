#include "WhatsAppCapturePass.h"

#include <gmock/gmock.h>

namespace quarl::WhatsAppWeb {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using namespace std::chrono_literals;

Message message(std::string id, std::string chat, bool peeked = false) {
  Message made;
  made.externalId = std::move(id);
  made.chatKey = std::move(chat);
  made.peeked = peeked;
  return made;
}

std::vector<std::string> idsOf(const std::vector<Message>& messages) {
  std::vector<std::string> ids;
  for (const auto& each : messages) ids.push_back(each.externalId);
  return ids;
}

TEST(WhatsAppCapturePass, HandsOverOnlyWhatTheServiceHasNotHadByIdOrByTheChatsRecord) {
  ReadResult result;
  result.ok = true;
  result.messages = {message("A1", "a"), message("A2", "a"), message("B1", "b", true), message("A2", "a"),
                     message("C1", "c")};
  SentMessages sent;
  sent.record(message("A1", "a"));
  PeekSchedule schedule;
  // B1 left the 800 ids long ago; the chat's own record still names it.
  schedule.handedOver(message("B1", "b"), messageTag("B1"));
  EXPECT_THAT(idsOf(toPost(result, sent, schedule)), ElementsAre("A2", "C1"));
  EXPECT_EQ(messageTag("3EB0E1").front(), 'm');
  EXPECT_NE(messageTag("3EB0E1"), messageTag("3EB0E2"));
}

TEST(WhatsAppCapturePass, WhatDidNotReachTheServiceIsReadAgainTheWayItWasRead) {
  std::vector<std::string> baseline{"a|1", "b|2", "c|3"};
  PeekSchedule schedule;
  const auto now = SystemTime(1800000000s);
  schedule.lastRead = {{"b", now}, {"c", now}};
  readAgain({message("A1", "a"), message("B1", "b", true)}, baseline, schedule);
  EXPECT_THAT(baseline, ElementsAre("b|2", "c|3", "a|")) << "an opened chat is opened again, and is still known";
  EXPECT_FALSE(schedule.lastRead.contains("b")) << "a chat read without opening is due again";
  EXPECT_TRUE(schedule.lastRead.contains("c"));
  EXPECT_EQ(schedule.due({"c", "b"}, now).front(), "b");
}

TEST(WhatsAppCapturePass, TheSweepEndsOnlyWhenNoChangedRowIsLeftAndTheCursorMovesPastWhatWasTried) {
  ReadResult read;
  read.ok = true;
  read.stage = "read";
  read.counts.opened = 4;
  read.counts.failedToOpen = 2;
  read.heldBack = {"a"};
  EXPECT_TRUE(sweepIsComplete(read)) << "a held-back chat is opened again anyway";
  EXPECT_EQ(cursorAfter(5, read), 11);
  read.counts.deferred = 1;
  EXPECT_FALSE(sweepIsComplete(read));
  ReadResult failed;
  failed.stage = "chatListMissing";
  failed.counts.opened = 3;
  EXPECT_FALSE(sweepIsComplete(failed));
  EXPECT_EQ(cursorAfter(5, failed), 5) << "a pass that read nothing leaves the cursor";
}

TEST(WhatsAppCapturePass, EachPageStateThatIsNotLinkedSaysWhyNothingWasRead) {
  EXPECT_EQ(captureSkipReason(std::nullopt), "WhatsApp Web has not finished loading yet");
  EXPECT_EQ(captureSkipReason(SessionState::linked()), std::nullopt);
  EXPECT_EQ(captureSkipReason(SessionState::needsLink()), "no phone has scanned the code on this Mac");
  EXPECT_THAT(captureSkipReason(SessionState::syncing()).value_or(""), HasSubstr("Nothing is wrong and nothing is lost"));
  EXPECT_EQ(captureSkipReason(SessionState::unrecognised("title=Gmail")), "the page is not WhatsApp — unrecognised — title=Gmail");
}

TEST(WhatsAppCapturePass, HealthLinesNameWhatMovedInThePage) {
  for (const auto& [stage, words] : std::vector<std::pair<std::string, std::string>>{
           {"chatListMissing", "not showing the chat list"}, {"noChatRows", "has NO ROWS in it"},
           {"unreadable", "something this build cannot read"}}) {
    ReadResult result;
    result.stage = stage;
    EXPECT_THAT(healthLines(result), ElementsAre(HasSubstr(words))) << stage;
  }
  ReadResult empty;
  empty.ok = true;
  empty.stage = "read";
  empty.counts.openedEmpty = 2;
  EXPECT_THAT(healthLines(empty), ElementsAre(HasSubstr("NOT ONE MESSAGE ROW")));
  empty.counts.rowsSeen = 1;
  EXPECT_TRUE(healthLines(empty).empty());

  PeekSchedule schedule;
  EXPECT_EQ(peekClauses(schedule), "");
  schedule.waitingSince["a"] = SystemTime(1800000000s);
  schedule.gaveUpLastPass = 2;
  EXPECT_EQ(peekClauses(schedule),
            ", 1 chat(s) with a message still decrypting, re-read without opening every minute for up to six hours"
            ", 2 chat(s) still decrypting after six hours, or no longer in the page's memory — re-read every five "
            "minutes like the rest from now on");
}

}  // namespace
}  // namespace quarl::WhatsAppWeb

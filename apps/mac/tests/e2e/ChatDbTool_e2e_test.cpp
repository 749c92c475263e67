#include <boost/json/parse.hpp>
#include <boost/process/args.hpp>
#include <boost/process/child.hpp>
#include <boost/process/io.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/MessagesStore.h"
#include "../support/TemporaryDirectory.h"

namespace quarl {
namespace {

namespace bp = boost::process;
namespace json = boost::json;
using ::testing::HasSubstr;

struct ToolRun {
  std::vector<json::object> rows;
  std::string errors;
};

// Runs quarl-chatdb, which must end with `code`.
ToolRun runTool(const std::vector<std::string>& arguments, int code = 0) {
  bp::ipstream out, err;
  bp::child tool(QUARL_CHATDB_PATH, bp::args(arguments), bp::std_out > out, bp::std_err > err);
  ToolRun run;
  std::string line;
  while (std::getline(out, line)) run.rows.push_back(json::parse(line).as_object());
  while (std::getline(err, line)) run.errors += line + "\n";
  tool.wait();
  EXPECT_EQ(tool.exit_code(), code) << run.errors;
  return run;
}

TEST(ChatDbTool, PrintsEveryRowAsJsonAndFailuresAsSentences) {
  testing::TemporaryDirectory folder;
  const auto db = (folder.path() / "chat.db").string();
  {
    testing::MessagesStore store(db);
    const auto ann = store.handle("+15550001");
    const auto chat = store.chat("+15550001", "iMessage", {ann});
    const auto row = store.message({.guid = "m1", .chat = chat, .handle = ann, .text = "hello",
                                    .date = 800'000'000'250'000'000});
    store.attachment(row, {.guid = "a1", .filename = "/tmp/x.png", .totalBytes = 9});
    store.message({.guid = "bare", .chat = chat, .handle = ann, .date = 800'000'001'000'000'000});
    store.message({.guid = "t1", .chat = chat, .handle = ann, .text = "Loved", .date = 800'000'002'000'000'000,
                   .associatedType = 2000, .associatedGuid = "p:0/m1"});
    store.message({.guid = "out", .chat = chat, .text = "mine", .date = 800'000'003'000'000'000, .isFromMe = true,
                   .dateRead = 800'000'009'000'000'000, .error = 4, .isSent = true});
  }

  const auto messages = runTool({"--db", db, "messages", "--after", "2026-05-08T00:00:00Z"}).rows;
  ASSERT_EQ(messages.size(), 3u);
  EXPECT_EQ(messages[0].at("guid"), "m1");
  EXPECT_EQ(messages[0].at("date"), "2026-05-09T06:13:20.250Z");
  EXPECT_EQ(messages[0].at("attachments").as_array().at(0).at("mimeType"), "image/png");
  EXPECT_EQ(messages[1].at("guid"), "out");
  EXPECT_EQ(messages[2], (json::object{{"skippedWithoutText", 1}}));
  const auto tapbacks = runTool({"--db", db, "tapbacks", "--after-row", "0", "--since", "2026-05-08T00:00:00Z"}).rows;
  ASSERT_EQ(tapbacks.size(), 1u);
  EXPECT_EQ(tapbacks[0].at("targetGuid"), "m1");
  EXPECT_EQ(tapbacks[0].at("meaning").at("emoji"), "❤️");
  EXPECT_EQ(runTool({"--db", db, "reply-address", "+15550001"}).rows.at(0).at("guid"), "iMessage;-;+15550001");
  EXPECT_EQ(runTool({"--db", db, "verify"}).rows.at(0).at("schema"), "known");

  EXPECT_EQ(runTool({"--db", db + ".gone", "verify"}, 1).errors, "No Messages database at " + db + ".gone.\n");
  EXPECT_THAT(runTool({"--db", db, "messages", "--after", "yesterday"}, 2).errors,
              HasSubstr("--after takes an ISO 8601 instant"));
  EXPECT_THAT(runTool({"--db", db, "tapbacks", "--since", "2026-05-08T00:00:00Z"}, 2).errors,
              HasSubstr("tapbacks needs --after-row."));
}

}  // namespace
}  // namespace quarl

#include "ChatSnapshot.h"

#include <gtest/gtest.h>

#include <thread>

#include "../tests/support/FileContents.h"
#include "../tests/support/TemporaryDirectory.h"
#include "ChatDatabase.h"
#include "MessagesStore.h"

namespace quarl {
namespace {

namespace fs = std::filesystem;
using testing::fileContents;

TEST(ChatSnapshot, CopiesTheStoreWithItsLogIntoAPrivateFolderAndRemovesItAfterwards) {
  testing::TemporaryDirectory home;
  const auto path = (home.path() / "chat.db").string();
  testing::MessagesStore store(path);
  store.message({.guid = "only-in-the-log", .chat = store.chat("+1", "iMessage"), .text = "hi", .date = 1});
  store.close();
  const auto mainBefore = fileContents(path);
  const auto logBefore = fileContents(path + "-wal");
  ASSERT_FALSE(logBefore.empty());

  // ChatDatabase's tests read through the copy rows that only the log holds.
  auto snapshot = ChatSnapshot::take(path).value();
  const auto folder = snapshot->folder();
  EXPECT_TRUE(folder.filename().string().starts_with("quarl-chatdb-"));
  EXPECT_NE(folder.parent_path(), home.path());
  EXPECT_EQ(fs::status(folder).permissions() & fs::perms::all, fs::perms::owner_all);
  EXPECT_EQ(fileContents(folder / "chat.db-wal"), logBefore);
  snapshot.reset();
  EXPECT_FALSE(fs::exists(folder));
  EXPECT_EQ(fileContents(path), mainBefore) << "the user's store is only ever read";
  EXPECT_EQ(fileContents(path + "-wal"), logBefore);
}

TEST(StoreFingerprint, ChangesWithEveryWriteAndWithAReplacedLogButNotWithReading) {
  testing::TemporaryDirectory home;
  const auto path = (home.path() / "chat.db").string();
  testing::MessagesStore store(path);
  const auto chat = store.chat("+1", "iMessage");
  store.close();
  const auto first = StoreFingerprint::of(path);
  EXPECT_TRUE(first.main.present && first.log.present);
  { auto snapshot = ChatSnapshot::take(path).value(); }
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  ASSERT_TRUE(ChatDatabase{path}.isReadable());
  EXPECT_EQ(StoreFingerprint::of(path), first) << "a snapshot, and a look at the store itself, only read";

  testing::MessagesStore writer(path, testing::MessagesSchema::tahoe, testing::MessagesStore::Opening::existing);
  writer.message({.guid = "new", .chat = chat, .text = "hi", .date = 1});
  EXPECT_NE(StoreFingerprint::of(path), first);

  // A commit into a reused log, where a coarse clock left its size and time as they were.
  writer.exec("pragma wal_checkpoint(restart)");
  const auto checkpointed = StoreFingerprint::of(path);
  const auto logTime = fs::last_write_time(path + "-wal");
  writer.message({.guid = "reused", .chat = chat, .text = "hi", .date = 2});
  fs::last_write_time(path + "-wal", logTime);
  ASSERT_EQ(fs::file_size(path + "-wal"), static_cast<std::uintmax_t>(checkpointed.log.size));
  EXPECT_NE(StoreFingerprint::of(path), checkpointed);
  writer.close();
  const auto written = StoreFingerprint::of(path);

  // A log swapped for another of the same size and time is another file.
  const auto log = fs::path(path + "-wal");
  const auto time = fs::last_write_time(log);
  fs::copy_file(log, log.string() + ".new");
  fs::rename(log.string() + ".new", log);
  fs::last_write_time(log, time);
  EXPECT_NE(StoreFingerprint::of(path), written);
  EXPECT_EQ(StoreFingerprint::of(path), StoreFingerprint::of(path));
  fs::remove(path);
  EXPECT_FALSE(StoreFingerprint::of(path).main.present);
}

}  // namespace
}  // namespace quarl

#include "StoreWatcher_linux.h"

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "../tests/support/TemporaryDirectory.h"

namespace quarl {
namespace {

using namespace std::chrono_literals;

TEST(InotifyStoreWatcher, TellsOfChangesInTheFolderEvenToFilesReplacedSinceTheWatchBegan) {
  boost::asio::io_context io;
  testing::TemporaryDirectory folder;
  InotifyStoreWatcher watcher(io.get_executor());
  EXPECT_FALSE(watcher.watch((folder.path() / "missing").string(), [] {}));

  int changes = 0;
  ASSERT_TRUE(watcher.watch(folder.path().string(), [&] { ++changes; }));
  const auto runUntilChanged = [&] {
    const int before = changes;
    for (int i = 0; i < 200 && changes == before; ++i) {
      io.restart();
      io.run_for(10ms);
    }
    return changes > before;
  };

  std::ofstream(folder.path() / "chat.db-wal") << "first";
  EXPECT_TRUE(runUntilChanged());
  // Messages replaces the log: the new file under the old name is still seen.
  std::ofstream(folder.path() / "chat.db-wal.new") << "second";
  std::filesystem::rename(folder.path() / "chat.db-wal.new", folder.path() / "chat.db-wal");
  EXPECT_TRUE(runUntilChanged());
  std::ofstream(folder.path() / "chat.db-wal", std::ios::app) << "more";
  EXPECT_TRUE(runUntilChanged());
}

}  // namespace
}  // namespace quarl

#pragma once

#include <boost/system/result.hpp>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "ChatDatabaseFailure.h"
#include "SqliteConnection.h"

namespace quarl {

// A private copy of the Messages store, taken so that a query never holds a lock on the live
// file and never sees a half-written page. The copy lives in a fresh folder of its own, which
// is removed with everything in it when the snapshot goes, on every path.
class ChatSnapshot {
 public:
  // Copies `path`, then its "-wal" and "-shm" files when they exist, and opens the copy
  // read-write so that SQLite can replay the copied write-ahead log. The user's file is only
  // ever read.
  static boost::system::result<std::unique_ptr<ChatSnapshot>, ChatDatabaseFailure> take(const std::string& path);

  ~ChatSnapshot();
  ChatSnapshot(const ChatSnapshot&) = delete;
  ChatSnapshot& operator=(const ChatSnapshot&) = delete;

  SqliteConnection& connection() { return *connection_; }
  const std::filesystem::path& folder() const { return folder_; }

 private:
  explicit ChatSnapshot(std::filesystem::path folder) : folder_(std::move(folder)) {}
  std::filesystem::path folder_;
  std::optional<SqliteConnection> connection_;
};

// How the store's files stand on disk: for the main file and its "-wal", whether it is there,
// which file it is (device and inode, so a replaced log counts even at the same size and time),
// its size and when it was last written; for the "-shm", whether it is there and which file it
// is, and the log's state as its index header gives it. Every write Messages makes lands in the
// log or, at a checkpoint, in the main file, so equal fingerprints mean nothing was written in
// between. The "-shm" is rewritten by every reader, this companion's own look at the store
// included, so its size and time say nothing about writes. Taken with a few stat calls, so a pass can learn it has nothing to read without
// copying anything.
struct StoreFingerprint {
  struct File {
    bool present = false;
    std::uint64_t device = 0, inode = 0;
    std::int64_t size = 0;
    std::int64_t writtenAt = 0;  // in the file system's own ticks
    friend bool operator==(const File&, const File&) = default;
  };
  File main, log, sharedMemory;
  // The header SQLite keeps in the "-shm" for the log as its last writer left it: the last
  // frame, the store's size in pages, the last frame's checksum and the log's salts. It changes
  // with every commit, even one that rewrites a reused log where a coarse clock leaves the
  // log's size and time as they were; a reader rebuilding the index writes the same values.
  std::string logState;

  static StoreFingerprint of(const std::string& path);
  friend bool operator==(const StoreFingerprint&, const StoreFingerprint&) = default;
};

// Why the store at `path` cannot even be looked at: notFound when nothing is there,
// permissionDenied when macOS will not say (a folder closed to this process). None when it is there.
std::optional<ChatDatabaseFailure> storeFileProblem(const std::string& path);

// Copies `from` to `to` as a clone where the file system allows, else byte for byte.
std::error_code copyFileForSnapshot(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace quarl

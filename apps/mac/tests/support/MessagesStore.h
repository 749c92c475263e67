#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Clock.h"

struct sqlite3;

namespace quarl::testing {

// The macOS versions whose Messages store schemas the tests build from.
enum class MessagesSchema {
  tahoe,      // macOS 26: tapback columns, custom emoji, stickers and the safety flag
  elCapitan,  // OS X 10.11: no tapback columns, no is_sticker, dates in seconds
};

struct MessageRow {
  std::string guid;
  std::int64_t chat = 0;    // a row id from MessagesStore::chat
  std::int64_t handle = 0;  // a row id from MessagesStore::handle; 0 for none
  std::optional<std::string> text = std::nullopt, attributedBody = std::nullopt;
  std::int64_t date = 0;  // raw, as the store keeps it (seconds or nanoseconds since 2001)
  bool isFromMe = false;
  std::string service = "iMessage";
  std::optional<std::int64_t> associatedType = std::nullopt;
  std::optional<std::string> associatedGuid = std::nullopt, associatedEmoji = std::nullopt;
  std::optional<std::int64_t> dateRead = std::nullopt, dateDelivered = std::nullopt;
  bool isDelivered = false;
  std::int64_t error = 0;
  bool isSent = false;
};

struct AttachmentRow {
  std::string guid;
  std::optional<std::string> filename = std::nullopt;  // the path on disk, perhaps starting "~/"
  std::optional<std::string> transferName = std::nullopt, uti = std::nullopt, mimeType = std::nullopt;
  std::int64_t totalBytes = 0;
  bool isSticker = false, sensitive = false;
};

// Whether a store gets the indexes macOS keeps on its tables. A real store always has them; a store
// without them shows that the readers do not depend on them for their answers.
enum class StoreIndexes { apple, none };

// A real SQLite Messages store at `path`, built from the macOS schema text kept in the tests' data folder, in
// WAL mode, with Apple's indexes unless told otherwise (those whose columns the schema lacks are left out). The tables are checkpointed into the main file; every row added afterwards stays in the "-wal"
// file, as it does while Messages is running, and closing the builder leaves it there.
class MessagesStore {
 public:
  enum class Opening { create, existing };
  // Creates the store with `schema`, or opens one built before to add rows to it.
  explicit MessagesStore(std::filesystem::path path, MessagesSchema schema = MessagesSchema::tahoe,
                         Opening opening = Opening::create, StoreIndexes indexes = StoreIndexes::apple);
  ~MessagesStore() { close(); }
  MessagesStore(const MessagesStore&) = delete;
  MessagesStore& operator=(const MessagesStore&) = delete;

  std::int64_t handle(const std::string& id, const std::string& service = "iMessage");
  // A chat with the given handles in chat_handle_join.
  std::int64_t chat(const std::string& identifier, const std::string& serviceName,
                    const std::vector<std::int64_t>& handles = {}, const std::string& displayName = "");
  std::int64_t message(const MessageRow& row);
  // The row of the chat with this identifier; 0 when there is none.
  std::int64_t chatRow(const std::string& identifier);
  std::int64_t attachment(std::int64_t messageRowId, const AttachmentRow& row);
  // Runs SQL as it stands, for the variants a test needs (a dropped table, a missing column).
  void exec(const std::string& sql);
  // Closes the connection now, leaving the "-wal" file in place.
  void close();

 private:
  MessagesSchema schema_;
  sqlite3* db_ = nullptr;
};

// The schema text of one macOS version, from the tests' data folder.
std::string messagesSchemaSql(MessagesSchema schema);
// Apple's indexes on `db`, one statement at a time: those naming a column the schema lacks are skipped.
void createAppleIndexes(sqlite3* db);

// An instant as the store writes it: nanoseconds (macOS 10.13 and later) or seconds since 2001.
std::int64_t appleNanoseconds(SystemTime instant);
std::int64_t appleSecondsRaw(SystemTime instant);

// An attributedBody blob as NSArchiver writes it for `text`, with the length in the form the
// archiver uses for its size (one byte, 0x81 and 16 bits, or 0x82 and 32 bits).
std::string typedStreamBody(const std::string& text);

}  // namespace quarl::testing

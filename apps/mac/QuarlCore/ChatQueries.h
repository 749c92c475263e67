#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ChatDatabase.h"
#include "SqliteConnection.h"

namespace quarl {

// The message reader of ChatDatabase on a connection that is already open, without taking a
// snapshot: ChatDatabase::messages is a snapshot and then this. The benchmarks use it to time
// the query alone against the sqlite3 shell on the same copy.
ChatDatabase::Result<ChatDatabase::MessageBatch> readMessages(SqliteConnection& connection, SystemTime after, int limit);

// The statements the readers prepare, by the optional columns the store has. The tests run them
// beside the same conditions written plainly, and the benchmarks beside the sqlite3 shell.
std::string messagesQuery(bool hasTapbackColumn);
std::string attachmentsQuery(const std::vector<std::int64_t>& rowIds, bool hasSensitiveColumn);
std::string tapbacksQuery(bool hasEmojiColumn);
std::string receiptsQuery(bool hasTapbackColumn);
std::string outboundSendsQuery();
extern const std::string theirNewestServiceQuery;

}  // namespace quarl

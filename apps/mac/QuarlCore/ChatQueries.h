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

// The message query's text, as readMessages prepares it.
std::string messagesQuery(bool hasTapbackColumn);
// The attachment query for a batch of message rows, as readMessages prepares it.
std::string attachmentsQuery(const std::vector<std::int64_t>& rowIds, bool hasSensitiveColumn);

}  // namespace quarl

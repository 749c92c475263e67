#include "MessagesStore.h"

#include <sqlite3.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace quarl::testing {
namespace {

constexpr std::int64_t appleEpochUnixSeconds = 978307200;

std::string fileText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("missing test data " + path.string());
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void check(sqlite3* db, int status, const std::string& what) {
  if (status != SQLITE_OK && status != SQLITE_DONE && status != SQLITE_ROW) throw std::runtime_error(what + ": " + sqlite3_errmsg(db));
}

// A column of a row to insert: NULL, an integer, or text, which `blob` binds as the bytes of a blob.
struct Column {
  Column(const char* name, std::string text, bool blob = false) : name(name), text(std::move(text)), blob(blob) {}
  Column(const char* name, std::optional<std::string> text) : name(name), text(std::move(text)) {}
  Column(const char* name, std::int64_t integer) : name(name), integer(integer) {}
  Column(const char* name, std::optional<std::int64_t> integer) : name(name), integer(integer) {}
  const char* name;
  std::optional<std::string> text;
  std::optional<std::int64_t> integer;
  bool blob = false;
};

std::int64_t insert(sqlite3* db, const std::string& table, const std::vector<Column>& columns) {
  std::string names, places;
  for (const auto& column : columns) {
    names += (names.empty() ? "" : ", ") + std::string(column.name);
    places += places.empty() ? "?" : ", ?";
  }
  const auto sql = "insert into " + table + " (" + names + ") values (" + places + ")";
  sqlite3_stmt* statement = nullptr;
  check(db, sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr), sql);
  int index = 0;
  for (const auto& column : columns) {
    const auto* text = column.text ? &*column.text : nullptr;
    const auto* integer = column.integer ? &*column.integer : nullptr;
    const int size = text ? static_cast<int>(text->size()) : 0;
    if (text && column.blob) sqlite3_bind_blob(statement, ++index, text->data(), size, SQLITE_TRANSIENT);
    if (text && !column.blob) sqlite3_bind_text(statement, ++index, text->data(), size, SQLITE_TRANSIENT);
    if (integer) sqlite3_bind_int64(statement, ++index, *integer);
    if (!text && !integer) sqlite3_bind_null(statement, ++index);
  }
  const int status = sqlite3_step(statement);
  sqlite3_finalize(statement);
  check(db, status, sql);
  return sqlite3_last_insert_rowid(db);
}

// The length of `length` bytes as the archiver writes it: one byte, or 0x81 or 0x82 and two or four bytes.
std::string lengthPrefix(std::size_t length) {
  const int bytes = length < 0x80 ? 1 : length <= 0xFFFF ? 2 : 4;
  std::string prefix = bytes == 1 ? "" : bytes == 2 ? "\x81" : "\x82";
  for (int byte = 0; byte < bytes; ++byte) prefix += static_cast<char>((length >> (8 * byte)) & 0xFF);
  return prefix;
}

}  // namespace

std::string messagesSchemaSql(MessagesSchema schema) {
  const std::filesystem::path folder = QUARL_TEST_DATA_DIR "/messages-schema";
  return fileText(folder / (schema == MessagesSchema::tahoe ? "tahoe.sql" : "el-capitan.sql")) +
         fileText(folder / "joins.sql");
}

void createAppleIndexes(sqlite3* db) {
  std::istringstream statements(fileText(std::filesystem::path(QUARL_TEST_DATA_DIR) / "messages-schema" / "indexes.sql"));
  for (std::string statement; std::getline(statements, statement);) {
    if (!statement.empty()) sqlite3_exec(db, statement.c_str(), nullptr, nullptr, nullptr);
  }
}

MessagesStore::MessagesStore(std::filesystem::path path, MessagesSchema schema, Opening opening, StoreIndexes indexes)
    : schema_(schema) {
  check(db_, sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr), "open");
  sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  // Like Messages, a writer waits out the moment a reader holds the store, rather than failing.
  sqlite3_busy_timeout(db_, 5000);
  exec("pragma journal_mode=wal; pragma wal_autocheckpoint=0;");
  if (opening == Opening::existing) return;
  exec(messagesSchemaSql(schema));
  if (indexes == StoreIndexes::apple) createAppleIndexes(db_);
  check(db_, sqlite3_wal_checkpoint_v2(db_, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr), "checkpoint");
}

void MessagesStore::close() { sqlite3_close(std::exchange(db_, nullptr)); }  // a harmless no-op once closed

void MessagesStore::exec(const std::string& sql) { check(db_, sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr), "exec"); }

std::int64_t MessagesStore::handle(const std::string& id, const std::string& service) {
  return insert(db_, "handle", {{"id", id}, {"service", service}});
}

std::int64_t MessagesStore::chat(const std::string& identifier, const std::string& serviceName,
                                 const std::vector<std::int64_t>& handles, const std::string& displayName) {
  const auto row = insert(db_, "chat", {{"guid", serviceName + ";-;" + identifier}, {"chat_identifier", identifier},
                                        {"service_name", serviceName}, {"display_name", displayName}});
  for (const auto handleRow : handles) insert(db_, "chat_handle_join", {{"chat_id", row}, {"handle_id", handleRow}});
  return row;
}

// Columns that an older schema lacks (the tapback ones) go in only when set.
std::int64_t MessagesStore::message(const MessageRow& row) {
  std::vector<Column> columns{{"guid", row.guid}, {"text", row.text}, {"service", row.service},
                              {"handle_id", row.handle}, {"date", row.date}, {"is_from_me", row.isFromMe},
                              {"is_delivered", row.isDelivered}, {"error", row.error}, {"is_sent", row.isSent},
                              {"date_read", row.dateRead}, {"date_delivered", row.dateDelivered}};
  if (row.associatedType) columns.push_back({"associated_message_type", *row.associatedType});
  if (row.associatedGuid) columns.push_back({"associated_message_guid", *row.associatedGuid});
  if (row.associatedEmoji) columns.push_back({"associated_message_emoji", *row.associatedEmoji});
  if (row.attributedBody) columns.push_back({"attributedBody", *row.attributedBody, true});
  const auto id = insert(db_, "message", columns);
  insert(db_, "chat_message_join", {{"chat_id", row.chat}, {"message_id", id}, {"message_date", row.date}});
  return id;
}

std::int64_t MessagesStore::chatRow(const std::string& identifier) {
  sqlite3_stmt* statement = nullptr;
  check(db_, sqlite3_prepare_v2(db_, "select ROWID from chat where chat_identifier = ?", -1, &statement, nullptr), "chat");
  sqlite3_bind_text(statement, 1, identifier.c_str(), -1, SQLITE_TRANSIENT);
  const std::int64_t row = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : 0;
  sqlite3_finalize(statement);
  return row;
}

std::int64_t MessagesStore::attachment(std::int64_t messageRowId, const AttachmentRow& row) {
  std::vector<Column> columns{{"guid", row.guid}, {"filename", row.filename}, {"uti", row.uti},
                              {"transfer_name", row.transferName}, {"mime_type", row.mimeType},
                              {"total_bytes", row.totalBytes}};
  if (schema_ == MessagesSchema::tahoe) columns.push_back({"original_guid", row.guid});
  if (row.isSticker) columns.push_back({"is_sticker", 1});
  if (row.sensitive) columns.push_back({"is_commsafety_sensitive", 1});
  const auto id = insert(db_, "attachment", columns);
  insert(db_, "message_attachment_join", {{"message_id", messageRowId}, {"attachment_id", id}});
  return id;
}

std::int64_t appleNanoseconds(SystemTime instant) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(instant.time_since_epoch()).count() -
         appleEpochUnixSeconds * 1'000'000'000;
}

std::int64_t appleSecondsRaw(SystemTime instant) {
  return std::chrono::duration_cast<std::chrono::seconds>(instant.time_since_epoch()).count() - appleEpochUnixSeconds;
}

std::string typedStreamBody(const std::string& text) {
  using namespace std::string_literals;
  return "\x04\x0bstreamtyped\x81\xe8\x03\x84\x01@\x84\x84\x84\x12NSAttributedString\x00\x84\x84\x08NSObject\x00\x85"
         "\x92\x84\x84\x84\x08NSString\x01\x94\x84\x01+"s +
         lengthPrefix(text.size()) + text +
         "\x86\x84\x02iI\x01\x05\x92\x84\x84\x84\x0cNSDictionary\x00\x94\x84\x01i\x01\x92\x84\x96\x96\x1d__kIMMessagePartAttributeName"
         "\x86\x92\x84\x84\x84\x08NSNumber\x00\x84\x84\x07NSValue\x00\x94\x84\x01*\x84\x99\x99\x00\x86\x86\x86"s;
}

}  // namespace quarl::testing

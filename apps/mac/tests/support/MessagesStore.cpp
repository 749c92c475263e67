#include "MessagesStore.h"

#include <sqlite3.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace quarl::testing {
namespace {

constexpr std::int64_t appleEpochUnixSeconds = 978307200;

std::string fileText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("missing test data " + path.string());
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void check(sqlite3* db, int status, const std::string& what) {
  if (status != SQLITE_OK && status != SQLITE_DONE && status != SQLITE_ROW) {
    throw std::runtime_error(what + ": " + sqlite3_errmsg(db));
  }
}

std::string lengthPrefix(std::size_t length) {
  std::string prefix;
  if (length < 0x80) {
    prefix += static_cast<char>(length);
  } else if (length <= 0xFFFF) {
    prefix += '\x81';
    prefix += static_cast<char>(length & 0xFF);
    prefix += static_cast<char>(length >> 8);
  } else {
    prefix += '\x82';
    for (int shift = 0; shift < 32; shift += 8) prefix += static_cast<char>((length >> shift) & 0xFF);
  }
  return prefix;
}

}  // namespace

std::string messagesSchemaSql(MessagesSchema schema) {
  const std::filesystem::path folder = QUARL_TEST_DATA_DIR "/messages-schema";
  return fileText(folder / (schema == MessagesSchema::tahoe ? "tahoe.sql" : "el-capitan.sql")) +
         fileText(folder / "joins.sql");
}

MessagesStore::MessagesStore(std::filesystem::path path, MessagesSchema schema, Opening opening)
    : path_(std::move(path)), schema_(schema) {
  check(db_, sqlite3_open_v2(path_.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr), "open");
  sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  exec("pragma journal_mode=wal; pragma wal_autocheckpoint=0;");
  if (opening == Opening::existing) return;
  exec(messagesSchemaSql(schema));
  checkpoint();
}

MessagesStore::~MessagesStore() { close(); }

void MessagesStore::close() {
  if (db_) sqlite3_close(db_);
  db_ = nullptr;
}

void MessagesStore::exec(const std::string& sql) {
  char* message = nullptr;
  const int status = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message);
  const std::string detail = message ? message : "";
  sqlite3_free(message);
  if (status != SQLITE_OK) throw std::runtime_error("exec: " + detail);
}

void MessagesStore::checkpoint() {
  check(db_, sqlite3_wal_checkpoint_v2(db_, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr), "checkpoint");
}

std::int64_t MessagesStore::insert(const std::string& table,
                                   const std::vector<std::pair<std::string, std::optional<std::string>>>& text,
                                   const std::vector<std::pair<std::string, std::int64_t>>& integers,
                                   const std::vector<std::pair<std::string, std::string>>& blobs) {
  std::string columns;
  std::string places;
  auto add = [&](const std::string& name) {
    if (!columns.empty()) {
      columns += ", ";
      places += ", ";
    }
    columns += name;
    places += "?";
  };
  for (const auto& [name, value] : text) add(name);
  for (const auto& [name, value] : integers) add(name);
  for (const auto& [name, value] : blobs) add(name);
  const std::string sql = "insert into " + table + " (" + columns + ") values (" + places + ")";
  sqlite3_stmt* statement = nullptr;
  check(db_, sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr), sql);
  int index = 1;
  for (const auto& [name, value] : text) {
    if (value) {
      sqlite3_bind_text(statement, index++, value->data(), static_cast<int>(value->size()), SQLITE_TRANSIENT);
    } else {
      sqlite3_bind_null(statement, index++);
    }
  }
  for (const auto& [name, value] : integers) sqlite3_bind_int64(statement, index++, value);
  for (const auto& [name, value] : blobs) {
    sqlite3_bind_blob(statement, index++, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
  }
  const int status = sqlite3_step(statement);
  sqlite3_finalize(statement);
  check(db_, status, sql);
  return sqlite3_last_insert_rowid(db_);
}

std::int64_t MessagesStore::handle(const std::string& id, const std::string& service) {
  return insert("handle", {{"id", id}, {"service", service}}, {});
}

std::int64_t MessagesStore::chat(const std::string& identifier, const std::string& serviceName,
                                 const std::vector<std::int64_t>& handles, const std::string& displayName) {
  const auto row = insert("chat",
                          {{"guid", serviceName + ";-;" + identifier},
                           {"chat_identifier", identifier},
                           {"service_name", serviceName},
                           {"display_name", displayName}},
                          {});
  for (const auto handleRow : handles) insert("chat_handle_join", {}, {{"chat_id", row}, {"handle_id", handleRow}});
  return row;
}

std::int64_t MessagesStore::message(const MessageRow& row) {
  std::vector<std::pair<std::string, std::optional<std::string>>> text = {
      {"guid", row.guid}, {"text", row.text}, {"service", row.service}};
  std::vector<std::pair<std::string, std::int64_t>> integers = {
      {"handle_id", row.handle},         {"date", row.date},   {"is_from_me", row.isFromMe ? 1 : 0},
      {"is_delivered", row.isDelivered}, {"error", row.error}, {"is_sent", row.isSent ? 1 : 0}};
  if (row.dateRead) integers.emplace_back("date_read", *row.dateRead);
  if (row.dateDelivered) integers.emplace_back("date_delivered", *row.dateDelivered);
  if (row.associatedType) integers.emplace_back("associated_message_type", *row.associatedType);
  if (row.associatedGuid) text.emplace_back("associated_message_guid", row.associatedGuid);
  if (row.associatedEmoji) text.emplace_back("associated_message_emoji", row.associatedEmoji);
  std::vector<std::pair<std::string, std::string>> blobs;
  if (row.attributedBody) blobs.emplace_back("attributedBody", *row.attributedBody);
  const auto id = insert("message", text, integers, blobs);
  insert("chat_message_join", {}, {{"chat_id", row.chat}, {"message_id", id}, {"message_date", row.date}});
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
  std::vector<std::pair<std::string, std::optional<std::string>>> text = {{"guid", row.guid},
                                                                          {"filename", row.filename},
                                                                          {"transfer_name", row.transferName},
                                                                          {"uti", row.uti},
                                                                          {"mime_type", row.mimeType}};
  if (schema_ == MessagesSchema::tahoe) text.emplace_back("original_guid", row.guid);
  std::vector<std::pair<std::string, std::int64_t>> integers = {{"total_bytes", row.totalBytes}};
  if (row.isSticker) integers.emplace_back("is_sticker", 1);
  if (row.sensitive) integers.emplace_back("is_commsafety_sensitive", 1);
  const auto id = insert("attachment", text, integers);
  insert("message_attachment_join", {}, {{"message_id", messageRowId}, {"attachment_id", id}});
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

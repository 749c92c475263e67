#include "SqliteConnection.h"

#include <sqlite3.h>

namespace quarl {

void SqliteStatement::Finalize::operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }

void SqliteStatement::bind(int index, std::int64_t value) { sqlite3_bind_int64(statement_.get(), index, value); }

void SqliteStatement::bind(int index, std::string_view text) {
  sqlite3_bind_text(statement_.get(), index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

bool SqliteStatement::step() { return sqlite3_step(statement_.get()) == SQLITE_ROW; }

bool SqliteStatement::isNull(int column) const {
  return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

std::int64_t SqliteStatement::integer(int column) const { return sqlite3_column_int64(statement_.get(), column); }

std::optional<std::string> SqliteStatement::text(int column) const {
  const auto* bytes = sqlite3_column_text(statement_.get(), column);
  if (!bytes) return std::nullopt;
  const auto size = sqlite3_column_bytes(statement_.get(), column);
  return std::string(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
}

std::string SqliteStatement::blob(int column) const {
  const auto* bytes = sqlite3_column_blob(statement_.get(), column);
  const auto size = sqlite3_column_bytes(statement_.get(), column);
  if (!bytes || size <= 0) return {};
  return std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
}

void SqliteConnection::Close::operator()(sqlite3* connection) const { sqlite3_close(connection); }

std::optional<SqliteConnection> SqliteConnection::open(const std::string& path, int flags) {
  sqlite3* connection = nullptr;
  const int status = sqlite3_open_v2(path.c_str(), &connection, flags, nullptr);
  if (status != SQLITE_OK || !connection) {
    sqlite3_close(connection);
    return std::nullopt;
  }
  return SqliteConnection(connection);
}

boost::system::result<SqliteStatement, std::string> SqliteConnection::prepare(std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  const int status =
      sqlite3_prepare_v2(connection_.get(), sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
  if (status != SQLITE_OK || !statement) {
    sqlite3_finalize(statement);
    return std::string(sqlite3_errmsg(connection_.get()));
  }
  return SqliteStatement(statement);
}

boost::system::result<std::vector<std::string>, std::string> SqliteConnection::columnNames(std::string_view table) {
  auto statement = prepare("pragma table_info(" + std::string(table) + ")");
  if (!statement) return statement.error();
  std::vector<std::string> names;
  while (statement->step()) {
    if (auto name = statement->text(1)) names.push_back(std::move(*name));
  }
  // A store that is not a database at all fails on the first step rather than on prepare.
  const int status = sqlite3_errcode(connection_.get());
  if (names.empty() && status != SQLITE_OK && status != SQLITE_DONE && status != SQLITE_ROW) {
    return std::string(sqlite3_errmsg(connection_.get()));
  }
  return names;
}

void SqliteConnection::skipCheckpointOnClose() {
  sqlite3_db_config(connection_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

}  // namespace quarl

#pragma once

#include <boost/system/result.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace quarl {

// One prepared SQLite statement, finalized when it goes. Columns are read by position.
class SqliteStatement {
 public:
  explicit SqliteStatement(sqlite3_stmt* statement) : statement_(statement) {}

  void bind(int index, std::int64_t value);
  void bind(int index, std::string_view text);
  // Moves to the next row; false when there is none, or when the step failed, which ends
  // reading just the same.
  bool step();

  bool isNull(int column) const;
  std::int64_t integer(int column) const;
  // None for NULL; the bytes as stored otherwise (not checked to be UTF-8).
  std::optional<std::string> text(int column) const;
  std::string blob(int column) const;

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const;
  };
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

// One SQLite connection, closed when it goes.
class SqliteConnection {
 public:
  // None when SQLite cannot open `path` with `flags` (SQLITE_OPEN_*).
  static std::optional<SqliteConnection> open(const std::string& path, int flags);

  // The statement, or SQLite's message for why it could not be prepared.
  boost::system::result<SqliteStatement, std::string> prepare(std::string_view sql);

  // The column names of `table` as "pragma table_info" gives them: none when the table does
  // not exist, SQLite's message when the store cannot be read at all.
  boost::system::result<std::vector<std::string>, std::string> columnNames(std::string_view table);

  // Leaves the write-ahead log alone on close: a snapshot is thrown away, so folding its log
  // back into the file would be wasted work.
  void skipCheckpointOnClose();

 private:
  struct Close {
    void operator()(sqlite3* connection) const;
  };
  explicit SqliteConnection(sqlite3* connection) : connection_(connection) {}
  std::unique_ptr<sqlite3, Close> connection_;
};

}  // namespace quarl

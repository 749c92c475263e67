// The readers' statements are written for SQLite's planner: a lower bound on message's date that
// its index can seek to, joins that start from message, a row id kept off its index. None of that
// may change what they return. Here each runs beside the same conditions written plainly, on the
// same connection, over random stores, and the two must agree row for row.
#include <gmock/gmock.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <random>
#include <variant>

#include "../tests/support/TemporaryDirectory.h"
#include "ChatQueries.h"
#include "MessagesStore.h"
#include "PlainStatements.h"

namespace quarl {
namespace {

using testing::MessagesSchema;
using testing::MessagesStore;
using testing::StoreIndexes;
namespace plain = testing::plain;

using Value = std::variant<std::monostate, std::int64_t, double, std::string>;
using Row = std::vector<Value>;
using Parameter = std::variant<std::int64_t, std::string>;

std::vector<Row> rowsOf(sqlite3* db, const std::string& sql, const std::vector<Parameter>& parameters) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    ADD_FAILURE() << sqlite3_errmsg(db) << "\n" << sql;
    return {};
  }
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    const int index = static_cast<int>(i) + 1;
    if (const auto* number = std::get_if<std::int64_t>(&parameters[i])) sqlite3_bind_int64(statement, index, *number);
    if (const auto* text = std::get_if<std::string>(&parameters[i])) {
      sqlite3_bind_text(statement, index, text->c_str(), -1, SQLITE_TRANSIENT);
    }
  }
  std::vector<Row> rows;
  while (sqlite3_step(statement) == SQLITE_ROW) {
    Row row;
    for (int column = 0; column < sqlite3_column_count(statement); ++column) {
      switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER: row.emplace_back(sqlite3_column_int64(statement, column)); break;
        case SQLITE_FLOAT: row.emplace_back(sqlite3_column_double(statement, column)); break;
        case SQLITE_NULL: row.emplace_back(std::monostate{}); break;
        default: {
          const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, column));
          row.emplace_back(std::string(bytes ? bytes : "", static_cast<std::size_t>(sqlite3_column_bytes(statement, column))));
        }
      }
    }
    rows.push_back(std::move(row));
  }
  sqlite3_finalize(statement);
  return rows;
}

// The statements order by one key and leave the order of rows that share it to SQLite, which is
// free to differ between two plans; so rows sharing a key are compared as a set. At the limit,
// which rows of the last key make the cut is SQLite's choice too: those rows are compared apart.
using OrderKey = std::function<Value(const Row&)>;

std::vector<Row> comparable(std::vector<Row> rows, const OrderKey& key, std::size_t limit) {
  if (rows.size() == limit && !rows.empty()) {
    const auto last = key(rows.back());
    while (!rows.empty() && key(rows.back()) == last) rows.pop_back();
  }
  for (auto group = rows.begin(); group != rows.end();) {
    const auto end = std::find_if(group, rows.end(), [&](const Row& row) { return key(row) != key(*group); });
    std::sort(group, end);
    group = end;
  }
  return rows;
}

struct RandomStore {
  std::vector<std::string> chatIdentifiers;
  std::vector<std::int64_t> secondsDates;  // the dates of the rows written in seconds
  std::vector<std::int64_t> nanosecondRowSeconds;  // the second each row written in nanoseconds falls in
};

// Around this instant, in seconds since 2001, the random dates and parameters fall.
constexpr std::int64_t around = 800'000'000;

// How a store mixes its units. Stores written since macOS 10.13 hold nanoseconds, with seconds
// rows only from years before; a few stores, and the boundary values, put seconds rows among the
// recent ones, which makes the readers fall back to their plainer bound.
enum class Mix { secondsRowsAreOld, secondsRowsAreRecent };

std::int64_t randomDate(std::mt19937& random, Mix mix) {
  std::uniform_int_distribution<int> pick(0, 19);
  std::uniform_int_distribution<std::int64_t> spread(-5000, 5000);
  std::uniform_int_distribution<std::int64_t> fraction(0, 999'999'999);
  const bool recent = mix == Mix::secondsRowsAreRecent;
  switch (pick(random)) {
    case 0: return recent ? 1'000'000'000'000 : 0;  // the largest value read as seconds
    case 1: return 1'000'000'000'001;                // the smallest read as nanoseconds
    case 2: return 999;
    case 3: case 4: case 5: return recent ? around + spread(random) : around / 2 + spread(random);
    default: return (around + spread(random)) * 1'000'000'000 + fraction(random);
  }
}

RandomStore build(const std::filesystem::path& path, MessagesSchema schema, StoreIndexes indexes, Mix mix,
                  std::mt19937& random) {
  MessagesStore store(path, schema, MessagesStore::Opening::create, indexes);
  const bool tapbacks = schema == MessagesSchema::tahoe;
  std::uniform_int_distribution<int> percent(0, 99);
  RandomStore built;
  std::vector<std::int64_t> handles;
  for (int i = 0; i < 5; ++i) handles.push_back(store.handle("+1555000" + std::to_string(i)));
  std::vector<std::int64_t> chats;
  for (int i = 0; i < 7; ++i) {
    // Two chats share an identifier, as an SMS and an iMessage chat with one person do.
    const auto identifier = i == 6 ? built.chatIdentifiers[0] : "chat" + std::to_string(i);
    std::vector<std::int64_t> members;
    for (const auto handle : handles) {
      if (percent(random) < 40) members.push_back(handle);
    }
    const auto service = i == 0 ? "iMessage" : i == 6 ? "SMS" : percent(random) < 70 ? "iMessage" : "SMS";
    chats.push_back(store.chat(identifier, service, members));
    if (i < 6) built.chatIdentifiers.push_back(identifier);
  }
  const auto optionalDate = [&]() -> std::optional<std::int64_t> {
    const int roll = percent(random);
    if (roll < 30) return std::nullopt;
    return randomDate(random, mix);
  };
  store.exec("begin");
  for (int i = 0; i < 300; ++i) {
    testing::MessageRow row{.guid = "m" + std::to_string(i),
                            .chat = chats[static_cast<std::size_t>(percent(random) % 6)],
                            .handle = percent(random) < 20 ? 0 : handles[static_cast<std::size_t>(percent(random) % 5)],
                            .text = percent(random) < 10 ? "\xEF\xBF\xBC" : "text " + std::to_string(i),
                            .date = randomDate(random, mix),
                            .isFromMe = percent(random) < 50,
                            .service = percent(random) < 75 ? "iMessage" : "SMS",
                            .dateRead = optionalDate(),
                            .dateDelivered = optionalDate(),
                            .isDelivered = percent(random) < 60,
                            .error = percent(random) < 10 ? 22 : 0,
                            .isSent = percent(random) < 80};
    if (tapbacks && percent(random) < 30) {
      static constexpr std::int64_t types[] = {0, 1000, 2000, 2001, 2005, 2006, 2007, 3000, 3003, 3006, 3007};
      row.associatedType = types[static_cast<std::size_t>(percent(random)) % std::size(types)];
      row.associatedGuid = "p:0/m" + std::to_string(percent(random));
      if (percent(random) < 30) row.associatedEmoji = "🎉";
    }
    const auto id = store.message(row);
    if (row.date <= 1'000'000'000'000) {
      built.secondsDates.push_back(row.date);
    } else {
      built.nanosecondRowSeconds.push_back(row.date / 1'000'000'000);
    }
    const int joins = percent(random);
    if (joins < 8) store.exec("delete from chat_message_join where message_id = " + std::to_string(id));
    if (joins >= 92) {
      store.exec("insert or ignore into chat_message_join (chat_id, message_id, message_date) values (" +
                 std::to_string(chats[6]) + ", " + std::to_string(id) + ", " + std::to_string(row.date) + ")");
    }
    if (percent(random) < 5) store.exec("update message set service = null where ROWID = " + std::to_string(id));
  }
  store.exec("commit");
  return built;
}

TEST(ChatStatements, ReturnWhatThePlainConditionsReturnOnAnyStore) {
  std::mt19937 random(20261123);
  std::uniform_int_distribution<std::int64_t> near(around - 6000, around + 6000);
  std::uniform_int_distribution<int> percent(0, 99);
  const std::int64_t limits[] = {1, 3, 40, 1000};
  // Parameters on the boundaries: the date of a row in seconds, or the second a nanosecond row
  // falls in, where "at or after" and "after" part.
  const auto randomSeconds = [&](const RandomStore& store) -> std::int64_t {
    const auto any = [&](const std::vector<std::int64_t>& values) { return values[static_cast<std::size_t>(random() % values.size())]; };
    const int roll = percent(random);
    if (roll < 5) return 999;
    if (roll < 10) return 1000;
    if (roll < 30) return any(store.secondsDates);
    if (roll < 55) return any(store.nanosecondRowSeconds);
    return near(random);
  };
  const OrderKey byDate = [](const Row& row) { return row[5]; };
  const OrderKey byRowId = [](const Row& row) { return row[0]; };
  const OrderKey bySendDate = [](const Row& row) { return row[2]; };
  const OrderKey byChange = [](const Row& row) { return std::max(row[1], row[2]); };
  const OrderKey whole = [](const Row& row) { return Value(std::to_string(row.size())); };

  int compared = 0, nonEmpty = 0, onTheNanosecondBound = 0;
  for (const auto schema : {MessagesSchema::tahoe, MessagesSchema::elCapitan}) {
    for (const auto indexes : {StoreIndexes::apple, StoreIndexes::none}) {
      for (const auto mix : {Mix::secondsRowsAreOld, Mix::secondsRowsAreRecent, Mix::secondsRowsAreOld}) {
        testing::TemporaryDirectory folder;
        const auto path = folder.path() / "chat.db";
        const auto built = build(path, schema, indexes, mix, random);
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
        EXPECT_EQ(rowsOf(db, "select count(*) from sqlite_master where name = 'message_idx_date'", {}),
                  std::vector<Row>{{std::int64_t(indexes == StoreIndexes::apple)}});
        const bool tahoe = schema == MessagesSchema::tahoe;
        // Our statement and the plain one give the same rows; at a limit, ours end with rows the
        // plain statement has under the last key. The number of rows compared.
        const auto agree = [&](const std::string& ours, const std::string& plain, std::vector<Parameter> parameters,
                               const OrderKey& key, bool limited) {
          const auto expected = rowsOf(db, plain, parameters);
          const auto actual = rowsOf(db, ours, parameters);
          const auto limit = limited ? static_cast<std::size_t>(std::get<std::int64_t>(parameters.back())) : SIZE_MAX;
          const auto keysOf = [&](const std::vector<Row>& rows) {
            std::vector<Value> keys;
            for (const auto& row : rows) keys.push_back(key(row));
            return keys;
          };
          EXPECT_EQ(keysOf(actual), keysOf(expected)) << ours;
          EXPECT_EQ(comparable(actual, key, limit), comparable(expected, key, limit)) << ours;
          if (actual.size() == limit) {
            parameters.back() = std::int64_t{1'000'000};
            const auto all = rowsOf(db, plain, parameters);
            for (const auto& row : actual) {
              if (key(row) == key(actual.back())) {
                EXPECT_NE(std::find(all.begin(), all.end(), row), all.end()) << ours;
              }
            }
          }
          ++compared;
          nonEmpty += !actual.empty();
          return expected.size();
        };
        for (int trial = 0; trial < 25; ++trial) {
          const auto limit = limits[static_cast<std::size_t>(percent(random)) % std::size(limits)];
          const auto seconds = randomSeconds(built);
          const auto messages = agree(messagesQuery(tahoe), plain::messages(tahoe), {seconds, limit}, byDate, true);
          // Where no seconds row is as late as the parameter, the readers seek the scaled bound.
          const bool scaled = std::none_of(built.secondsDates.begin(), built.secondsDates.end(),
                                           [&](std::int64_t date) { return date >= seconds; });
          onTheNanosecondBound += scaled && messages > 0;
          agree(outboundSendsQuery(), plain::outboundSends, {seconds, limit}, bySendDate, true);
          const std::int64_t changedAfter = percent(random) < 30 ? 0 : near(random) * 1'000'000'000;
          agree(receiptsQuery(tahoe), plain::receipts(tahoe), {changedAfter, seconds, limit}, byChange, true);
          if (tahoe) {
            const std::int64_t afterRowId = percent(random) < 30 ? 0 : percent(random) * 3;
            agree(tapbacksQuery(true), plain::tapbacks(true), {afterRowId, seconds, limit}, byRowId, true);
          }
          const auto& identifier = built.chatIdentifiers[static_cast<std::size_t>(percent(random)) % 6];
          // Ties are broken by row id here, so the one row is the same whatever the plan.
          agree(theirNewestServiceQuery, plain::theirNewestService, {identifier}, whole, false);
        }
        sqlite3_close(db);
      }
    }
  }
  EXPECT_GT(nonEmpty, compared / 2) << "most comparisons must have rows to compare";
  EXPECT_GT(onTheNanosecondBound, 20) << "the bound real stores take must be compared with rows";
}

}  // namespace
}  // namespace quarl

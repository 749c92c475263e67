// The Messages store reader against a generated store of realistic size: 1,000,000 messages in
// 50,000 chats with 200,000 attachments and the indexes macOS keeps, the newest 2,000 messages
// still in the write-ahead log. It times one snapshot (clone, plain copy, and `cp` of the same
// files); each statement the readers run, in its own form and with its conditions written
// plainly, in the sqlite3 shell on one snapshot; the message query alone in this process; and
// each reader's whole call, snapshot included, with peak resident memory.
//
// The store is generated once into QUARL_BENCH_STORE (default: a folder under the temporary
// folder) and kept there, so later runs start at once.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <fstream>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>

#include "../apps/mac/tests/support/MessagesStore.h"
#include "ChatQueries.h"
#include "PlainStatements.h"
#include "ChatSnapshot.h"
#include "FileClone.h"
#include "RandomText.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr int messageCount = 1'000'000;
constexpr int chatCount = 50'000;
constexpr int handleCount = 40'000;
constexpr int attachmentCount = 200'000;
// Messages checkpoints its log as SQLite does by default, every 1,000 pages (4 MB, about 550 of
// these rows); 2,000 rows is a log a few times that, left by a burst of writes.
constexpr int messagesInLog = 2'000;

const quarl::SystemTime now = std::chrono::time_point_cast<quarl::SystemTime::duration>(std::chrono::system_clock::now());

void check(sqlite3* db, int status) {
  if (status != SQLITE_OK && status != SQLITE_DONE && status != SQLITE_ROW) throw std::runtime_error(sqlite3_errmsg(db));
}

struct Insert {
  Insert(sqlite3* db, const char* sql) : db(db) { check(db, sqlite3_prepare_v2(db, sql, -1, &statement, nullptr)); }
  ~Insert() { sqlite3_finalize(statement); }
  void run() {
    check(db, sqlite3_step(statement));
    sqlite3_reset(statement);
  }
  void text(int index, const std::string& value) {
    sqlite3_bind_text(statement, index, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
  }
  void blob(int index, const std::string& value) {
    sqlite3_bind_blob(statement, index, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
  }
  void integer(int index, std::int64_t value) { sqlite3_bind_int64(statement, index, value); }
  sqlite3* db;
  sqlite3_stmt* statement = nullptr;
};

std::string words(std::mt19937& random, int minimum, int maximum) {
  static const char* vocabulary[] = {"see",  "you",    "at",   "the",  "station", "tomorrow", "thanks", "love",
                                     "this", "photo",  "call", "me",   "later",   "dinner",   "ok",     "sure",
                                     "when", "are",    "we",   "going", "haha",   "café",     "🎉",     "on my way"};
  std::uniform_int_distribution<int> length(minimum, maximum);
  std::uniform_int_distribution<int> pick(0, std::size(vocabulary) - 1);
  std::string text;
  const int target = length(random);
  while (static_cast<int>(text.size()) < target) text += std::string(text.empty() ? "" : " ") + vocabulary[pick(random)];
  return text;
}

// Rows from `first` to `last` (exclusive) of the message table, dated between `from` and `to`.
void addMessages(sqlite3* db, std::mt19937& random, int first, int last, quarl::SystemTime from, quarl::SystemTime to) {
  Insert message(db,
                 "insert into message (guid, text, handle_id, service, date, is_from_me, attributedBody, is_sent, "
                 "is_delivered, date_delivered, date_read, associated_message_type, associated_message_guid) "
                 "values (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  Insert chatJoin(db, "insert into chat_message_join (chat_id, message_id, message_date) values (?, ?, ?)");
  std::uniform_int_distribution<int> chat(1, chatCount);
  std::uniform_int_distribution<int> handle(1, handleCount);
  std::uniform_int_distribution<int> percent(0, 99);
  const auto span = to - from;
  for (int i = first; i < last; ++i) {
    const auto date = quarl::testing::appleNanoseconds(from + span * (i - first) / (last - first));
    const bool fromMe = percent(random) < 40;
    const bool tapback = percent(random) < 3;
    const auto text = words(random, 5, 200);
    message.text(1, quarl::randomUuid());
    message.text(2, text);
    message.integer(3, fromMe ? 0 : handle(random));
    message.text(4, percent(random) < 80 ? "iMessage" : "SMS");
    message.integer(5, date);
    message.integer(6, fromMe);
    message.blob(7, quarl::testing::typedStreamBody(text));
    message.integer(8, fromMe);
    message.integer(9, fromMe);
    message.integer(10, fromMe ? date + 1'000'000'000 : 0);
    message.integer(11, fromMe && percent(random) < 50 ? date + 60'000'000'000 : 0);
    message.integer(12, tapback ? 2000 + percent(random) % 6 : 0);
    message.text(13, tapback ? "p:0/" + quarl::randomUuid() : "");
    message.run();
    chatJoin.integer(1, chat(random));
    chatJoin.integer(2, sqlite3_last_insert_rowid(db));
    chatJoin.integer(3, date);
    chatJoin.run();
  }
}

void generate(const fs::path& path) {
  fs::create_directories(path.parent_path());
  const auto building = path.string() + ".building";
  for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(building + suffix);
  std::mt19937 random(7);
  sqlite3* db = nullptr;
  check(db, sqlite3_open(building.c_str(), &db));
  sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  check(db, sqlite3_exec(db, "pragma journal_mode=wal; pragma wal_autocheckpoint=0;", nullptr, nullptr, nullptr));
  check(db, sqlite3_exec(db, quarl::testing::messagesSchemaSql(quarl::testing::MessagesSchema::tahoe).c_str(), nullptr,
                         nullptr, nullptr));
  check(db, sqlite3_exec(db, "begin", nullptr, nullptr, nullptr));
  {
    Insert handle(db, "insert into handle (id, service) values (?, 'iMessage')");
    for (int i = 1; i <= handleCount; ++i) {
      handle.text(1, "+1555" + std::to_string(1'000'000 + i));
      handle.run();
    }
    Insert chat(db, "insert into chat (guid, chat_identifier, service_name, display_name) values (?, ?, ?, ?)");
    Insert member(db, "insert or ignore into chat_handle_join (chat_id, handle_id) values (?, ?)");
    std::uniform_int_distribution<int> members(1, 5);
    std::uniform_int_distribution<int> anyHandle(1, handleCount);
    for (int i = 1; i <= chatCount; ++i) {
      const int count = members(random);
      const auto identifier = count > 2 ? "chat" + std::to_string(i) : "+1555" + std::to_string(1'000'000 + i % handleCount);
      chat.text(1, "iMessage;-;" + identifier + ";" + std::to_string(i));
      chat.text(2, identifier);
      chat.text(3, i % 5 == 0 ? "SMS" : "iMessage");
      chat.text(4, count > 2 ? words(random, 5, 20) : "");
      chat.run();
      for (int m = 0; m < count; ++m) {
        member.integer(1, i);
        member.integer(2, anyHandle(random));
        member.run();
      }
    }
    addMessages(db, random, 0, messageCount - messagesInLog, now - 730 * 24h, now - 6h);
    Insert attachment(db,
                      "insert into attachment (guid, original_guid, filename, transfer_name, uti, mime_type, "
                      "total_bytes, is_sticker) values (?, ?, ?, ?, ?, ?, ?, ?)");
    Insert attachmentJoin(db, "insert or ignore into message_attachment_join (message_id, attachment_id) values (?, ?)");
    std::uniform_int_distribution<int> owner(1, messageCount);
    for (int i = 1; i <= attachmentCount; ++i) {
      const auto guid = quarl::randomUuid();
      attachment.text(1, guid);
      attachment.text(2, guid);
      attachment.text(3, "~/Library/Messages/Attachments/ab/11/" + guid + "/IMG_" + std::to_string(i) + ".heic");
      attachment.text(4, "IMG_" + std::to_string(i) + ".heic");
      attachment.text(5, "public.heic");
      attachment.text(6, "image/heic");
      attachment.integer(7, 1'500'000 + i);
      attachment.integer(8, i % 50 == 0);
      attachment.run();
      attachmentJoin.integer(1, owner(random));
      attachmentJoin.integer(2, i);
      attachmentJoin.run();
    }
  }
  check(db, sqlite3_exec(db, "commit", nullptr, nullptr, nullptr));
  // Built after the bulk rows, which is faster; the rows of the log below go through them.
  quarl::testing::createAppleIndexes(db);
  check(db, sqlite3_wal_checkpoint_v2(db, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr));
  // The newest rows stay in the log, as they do while Messages is running.
  check(db, sqlite3_exec(db, "begin", nullptr, nullptr, nullptr));
  addMessages(db, random, messageCount - messagesInLog, messageCount, now - 6h, now - 10s);
  check(db, sqlite3_exec(db, "commit", nullptr, nullptr, nullptr));
  sqlite3_close(db);
  for (const char* suffix : {"-wal", "-shm", ""}) {
    if (fs::exists(building + suffix)) fs::rename(building + suffix, path.string() + suffix);
  }
}

const fs::path& store() {
  static const fs::path path = [] {
    const char* configured = std::getenv("QUARL_BENCH_STORE");
    fs::path chosen = configured ? fs::path(configured) : fs::temp_directory_path() / "quarl-bench-store" / "chat.db";
    if (!fs::exists(chosen)) generate(chosen);
    return chosen;
  }();
  return path;
}

std::vector<fs::path> storeFiles() {
  std::vector<fs::path> files;
  for (const char* suffix : {"", "-wal", "-shm"}) {
    if (fs::exists(store().string() + suffix)) files.emplace_back(store().string() + suffix);
  }
  return files;
}

fs::path freshFolder() {
  const auto folder = fs::temp_directory_path() / ("quarl-bench-copy-" + quarl::randomHex(6));
  fs::create_directories(folder);
  return folder;
}

double peakResidentMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

void BM_SnapshotClone(benchmark::State& state) {
  const auto files = storeFiles();
  for (auto _ : state) {
    const auto folder = freshFolder();
    for (const auto& file : files) {
      if (!quarl::cloneFile(file, folder / file.filename())) {
        fs::remove_all(folder);
        state.SkipWithError("this file system cannot clone files");
        return;
      }
    }
    state.PauseTiming();
    fs::remove_all(folder);
    state.ResumeTiming();
  }
}

void BM_SnapshotPlainCopy(benchmark::State& state) {
  const auto files = storeFiles();
  std::uintmax_t bytes = 0;
  for (const auto& file : files) bytes += fs::file_size(file);
  for (auto _ : state) {
    const auto folder = freshFolder();
    for (const auto& file : files) fs::copy_file(file, folder / file.filename());
    state.PauseTiming();
    fs::remove_all(folder);
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes * state.iterations()));
}

void BM_SnapshotCpCommand(benchmark::State& state) {
  std::string names;
  for (const auto& file : storeFiles()) names += " '" + file.string() + "'";
  for (auto _ : state) {
    const auto folder = freshFolder();
    if (std::system(("cp" + names + " '" + folder.string() + "/'").c_str()) != 0) state.SkipWithError("cp failed");
    state.PauseTiming();
    fs::remove_all(folder);
    state.ResumeTiming();
  }
}

// ChatSnapshot::take as the reader uses it: clone or copy, then open.
void BM_SnapshotTake(benchmark::State& state) {
  for (auto _ : state) {
    auto snapshot = quarl::ChatSnapshot::take(store().string());
    if (!snapshot) state.SkipWithError(snapshot.error().description().c_str());
  }
}

void BM_MessagesQueryOnSnapshot(benchmark::State& state) {
  auto snapshot = quarl::ChatSnapshot::take(store().string());
  if (!snapshot) return state.SkipWithError(snapshot.error().description().c_str());
  std::size_t read = 0;
  for (auto _ : state) {
    auto batch = quarl::readMessages((*snapshot)->connection(), now - 1h, 500);
    if (!batch) return state.SkipWithError(batch.error().description().c_str());
    read = batch->messages.size();
    benchmark::DoNotOptimize(batch);
  }
  state.counters["messages"] = static_cast<double>(read);
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
    text.replace(at, what.size(), with);
  }
  return text;
}

// One snapshot for every statement run in the shell, taken as the reader takes its own.
quarl::ChatSnapshot& shellSnapshot() {
  static const auto snapshot = quarl::ChatSnapshot::take(store().string()).value();
  return *snapshot;
}

std::string firstValue(const std::string& sql) {
  auto statement = shellSnapshot().connection().prepare(sql);
  if (!statement) throw std::runtime_error(statement.error());
  return statement->step() ? statement->text(0).value_or("") : std::string();
}

// The busiest conversation: the reply address reads all of its messages.
std::string busiestChat() {
  return firstValue("select chat_identifier from chat where ROWID = (select chat_id from chat_message_join "
                    "group by chat_id order by count(*) desc limit 1)");
}

// A store statement with the parameters the companion gives it, in its two forms.
struct Statement {
  std::string name;
  std::string ours, plain;
  std::vector<std::string> parameters;  // ?1, ?2, ... as SQL literals
};

std::vector<Statement> statements() {
  namespace plain = quarl::testing::plain;
  const auto seconds = [](quarl::SystemTime at) { return std::to_string(quarl::ChatDatabase::appleSeconds(at)); };
  const auto hour = seconds(now - 1h), week = seconds(now - 7 * 24h), minute = seconds(now - 1min);
  const auto nearlyNewest = std::to_string(std::stoll(firstValue("select max(ROWID) from message")) - 100);
  const auto busiest = "'" + busiestChat() + "'";
  return {
      {"messages(after: now-1h, limit: 500)", quarl::messagesQuery(true), plain::messages(true), {hour, "500"}},
      {"tapbacks(afterRowId: 0, since: now-7d, limit: 500)", quarl::tapbacksQuery(true), plain::tapbacks(true),
       {"0", week, "500"}},
      {"tapbacks(afterRowId: newest-100, since: now-7d, limit: 500)", quarl::tapbacksQuery(true), plain::tapbacks(true),
       {nearlyNewest, week, "500"}},
      {"receipts(changedAfter: 0, sentSince: now-7d, limit: 2000)", quarl::receiptsQuery(true), plain::receipts(true),
       {"0", week, "2000"}},
      {"outboundSends(at: now-1min, limit: 50)", quarl::outboundSendsQuery(), plain::outboundSends, {minute, "50"}},
      {"theirNewestService(busiest chat)", quarl::theirNewestServiceQuery, plain::theirNewestService, {busiest}},
  };
}

// The statement in the sqlite3 shell on the shared snapshot; the shell's own timer measures the
// statement alone, without its start-up or opening the file.
void statementInSqliteShell(benchmark::State& state, std::string sql, std::vector<std::string> parameters) {
  for (std::size_t i = parameters.size(); i > 0; --i) sql = replaced(sql, "?" + std::to_string(i), parameters[i - 1]);
  const auto script = shellSnapshot().folder() / ("bench-" + quarl::randomHex(4) + ".sql");
  std::ofstream(script) << ".output /dev/null\n.timer on\n" << sql << ";\n";
  const auto database = (shellSnapshot().folder() / store().filename()).string();
  for (auto _ : state) {
    const auto command = "sqlite3 '" + database + "' < '" + script.string() + "'";
    FILE* shell = ::popen(command.c_str(), "r");
    if (!shell) return state.SkipWithError("sqlite3 could not be started");
    double seconds = 0;
    char line[256];
    while (std::fgets(line, sizeof line, shell)) {
      double real = 0, user = 0, system = 0;
      if (std::sscanf(line, "Run Time: real %lf user %lf sys %lf", &real, &user, &system) == 3) seconds += real;
    }
    if (::pclose(shell) != 0) return state.SkipWithError("sqlite3 failed (is the sqlite3 package installed?)");
    state.SetIterationTime(seconds);
  }
}

// What each reader costs its caller: snapshot, statement and rows. `read` gives the failure's
// sentence, or none.
using Read = std::function<std::optional<std::string>(const quarl::ChatDatabase&)>;

template <class Result>
std::optional<std::string> problem(const Result& result) {
  if (result) return std::nullopt;
  return result.error().description();
}

void readerWhole(benchmark::State& state, Read read) {
  const quarl::ChatDatabase database{store().string()};
  for (auto _ : state) {
    if (auto failed = read(database)) return state.SkipWithError(failed->c_str());
  }
  state.counters["peakRssMB"] = peakResidentMegabytes();
}

void registerStatementsAndReaders() {
  for (const auto& statement : statements()) {
    benchmark::RegisterBenchmark(("shell/ours/" + statement.name).c_str(), statementInSqliteShell, statement.ours,
                                 statement.parameters)
        ->UseManualTime()->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("shell/plain/" + statement.name).c_str(), statementInSqliteShell, statement.plain,
                                 statement.parameters)
        ->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
  }
  using Database = quarl::ChatDatabase;
  const auto busiest = busiestChat();
  const std::pair<const char*, Read> readers[] = {
      {"reader/messages", [](const Database& d) { return problem(d.messages(now - 1h, 500)); }},
      {"reader/tapbacks", [](const Database& d) { return problem(d.tapbacks(0, now - 7 * 24h, 500)); }},
      {"reader/receipts", [](const Database& d) { return problem(d.receipts(0, now - 7 * 24h, 2000)); }},
      {"reader/outboundSends", [](const Database& d) { return problem(d.outboundSends(now - 1min, 50)); }},
      {"reader/replyAddress", [busiest](const Database& d) { return problem(d.replyAddress(busiest)); }},
      // The tick's three readers on one copy, as the capture pass reads them.
      {"reader/tickPassOnOneCopy",
       [](const Database& d) -> std::optional<std::string> {
         auto reading = d.reading();
         if (!reading) return reading.error().description();
         if (auto failed = problem(reading->messages(now - 1h, 1000))) return failed;
         if (auto failed = problem(reading->tapbacks(0, now - 7 * 24h, 500))) return failed;
         return problem(reading->receipts(0, now - 7 * 24h, 2000));
       }},
  };
  for (const auto& [name, read] : readers) benchmark::RegisterBenchmark(name, readerWhole, read)->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_SnapshotClone)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SnapshotPlainCopy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SnapshotCpCommand)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SnapshotTake)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MessagesQueryOnSnapshot)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  registerStatementsAndReaders();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

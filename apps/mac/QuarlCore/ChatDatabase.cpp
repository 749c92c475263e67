#include "ChatDatabase.h"

#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "ChatQueries.h"
#include "ChatSnapshot.h"
#include "MediaTypes.h"
#include "TypedStreamText.h"
#include "Utf16Text.h"

namespace quarl {
namespace fs = std::filesystem;
namespace {

using Failure = ChatDatabaseFailure;
using Columns = std::vector<std::string>;

constexpr std::int64_t appleEpochUnixSeconds = 978307200;

const std::string threshold = std::to_string(ChatDatabase::nanosecondThreshold);

// The store's date in whole seconds, whichever unit the row was written in. The same rule as
// appleTimeToDate, so that the database orders and compares as the conversion does.
std::string secondsOf(std::string_view column) {
  return "(case when " + std::string(column) + " > " + threshold + "\n                then " +
         std::string(column) + " / 1000000000\n                else " + std::string(column) + " end)";
}

// A lower bound on the raw `m.date` that every row meeting `secondsOf("m.date") <comparison>
// <parameter>` meets too, and that message_idx_date can seek to, where the seconds expression
// makes SQLite read every row. A nanosecond row meets the seconds condition only when its raw
// value meets it scaled to nanoseconds, and a seconds row only when its raw value meets it as it
// stands; so unless the store holds a seconds row that meets it (rows written before macOS 10.13
// and dated after the parameter, in practice never), the scaled bound holds for every row
// returned. Added beside the seconds condition, it changes which rows are looked at, never which
// are returned.
std::string dateBoundOf(std::string_view comparison, std::string_view parameter) {
  const std::string op(comparison), p(parameter);
  return "m.date " + op + " (case when exists (select 1 from message early where early.date " + op + " " + p +
         " and early.date <= " + threshold + ") then " + p + " else " + p + " * 1000000000 end)";
}

const std::string tapbackCondition =
    "(coalesce(m.associated_message_type, 0) between 2000 and 2006 or "
    "coalesce(m.associated_message_type, 0) between 3000 and 3006)";

struct RequiredColumns {
  std::string_view table;
  std::vector<std::string_view> columns;
};

const std::vector<RequiredColumns> required = {
    {"message", {"guid", "text", "is_from_me", "date", "handle_id", "attributedBody"}},
    {"chat", {"ROWID", "chat_identifier", "service_name", "display_name"}},
    {"handle", {"ROWID", "id"}},
    {"chat_message_join", {"chat_id", "message_id"}},
    {"chat_handle_join", {"chat_id", "handle_id"}},
};
const std::vector<std::string_view> attachmentRequired = {"guid",      "filename",    "uti",     "mime_type",
                                                          "transfer_name", "total_bytes", "is_sticker"};
const std::vector<std::string_view> tapbackRequired = {"associated_message_type", "associated_message_guid",
                                                       "is_from_me", "handle_id", "date"};
const std::vector<std::string_view> receiptRequired = {"is_from_me", "date_delivered", "date_read",
                                                       "service",    "date",           "is_delivered"};
const std::vector<std::string_view> deliveryRequired = {"error", "is_sent"};

bool has(const Columns& columns, std::string_view name) {
  // pragma table_info gives names as declared; SQLite itself compares them without regard to case.
  return std::any_of(columns.begin(), columns.end(), [&](const std::string& column) {
    return std::equal(column.begin(), column.end(), name.begin(), name.end(),
                      [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) ==
                                                  std::tolower(static_cast<unsigned char>(b)); });
  });
}

std::vector<std::string_view> missingFrom(const Columns& columns, const std::vector<std::string_view>& wanted) {
  std::vector<std::string_view> missing;
  for (const auto name : wanted) {
    if (!has(columns, name)) missing.push_back(name);
  }
  return missing;
}

std::string joined(const std::vector<std::string_view>& names) {
  std::string text;
  for (const auto name : names) {
    if (!text.empty()) text += ", ";
    text += name;
  }
  return text;
}

// "the table `x` is missing entirely" or "`x` has no a, b"; none when every column is there.
std::optional<std::string> shapeProblem(std::string_view table, const Columns& columns,
                                        const std::vector<std::string_view>& wanted) {
  if (columns.empty()) return "the table `" + std::string(table) + "` is missing entirely";
  const auto missing = missingFrom(columns, wanted);
  if (missing.empty()) return std::nullopt;
  return "`" + std::string(table) + "` has no " + joined(missing);
}

boost::system::result<Columns, Failure> columnsOf(SqliteConnection& connection, std::string_view table) {
  auto columns = connection.columnNames(table);
  if (!columns) return Failure::query(columns.error());
  return std::move(*columns);
}

boost::system::result<void, Failure> checkRequired(SqliteConnection& connection) {
  for (const auto& [table, wanted] : required) {
    auto columns = columnsOf(connection, table);
    if (!columns) return columns.error();
    if (auto problem = shapeProblem(table, *columns, wanted)) return Failure::schemaChanged(*problem);
  }
  return {};
}

// The sentence of an unavailable readout, when `message` lacks what a reader needs.
std::optional<std::string> unavailableBecause(const Columns& messageColumns, const std::vector<std::string_view>& wanted,
                                              std::string_view clause) {
  const auto missing = missingFrom(messageColumns, wanted);
  if (missing.empty()) return std::nullopt;
  return "this Messages database has no " + joined(missing) + " column, " + std::string(clause);
}

boost::system::result<std::optional<SqliteConnection>, Failure> openDirect(const std::string& path) {
  if (auto problem = storeFileProblem(path)) return *problem;
  auto connection = SqliteConnection::open(path, SQLITE_OPEN_READONLY);
  if (!connection) return Failure::permissionDenied(path);
  return connection;
}

std::string storeText(const std::optional<std::string>& text) { return text ? repairedUtf8(*text) : std::string(); }

std::optional<std::string> nonEmpty(std::optional<std::string> text) {
  if (!text || text->empty()) return std::nullopt;
  return repairedUtf8(*text);
}

std::string expandedHome(const std::string& path) {
  if (path != "~" && !path.starts_with("~/")) return path;
  const char* home = std::getenv("HOME");
  return (home ? std::string(home) : std::string()) + path.substr(1);
}

}  // namespace

std::string messagesQuery(bool hasTapbackColumn) {
  return R"(select m.guid,
       c.chat_identifier,
       m.is_from_me,
       h.id as handle,
       m.text,
       m.date,
       c.service_name,
       (select count(*) from chat_handle_join chj where chj.chat_id = c.ROWID) as participants,
       -- Columns are read by position: 0 to 10 are fixed as listed here.
       m.attributedBody,
       c.display_name,
       m.ROWID
       -- Every new column is appended at the end, after m.ROWID, never in between.
-- message drives the joins: its date index finds the few rows wanted, where starting from the
-- join table would walk every message ever kept.
from message m
cross join chat_message_join cmj on cmj.message_id = m.ROWID
cross join chat c on c.ROWID = cmj.chat_id
left join handle h on h.ROWID = m.handle_id
where )" + dateBoundOf(">", "?1") + R"(
  and )" + secondsOf("m.date") + R"( > ?1
)" + (hasTapbackColumn ? "  and not " + tapbackCondition + "\n" : std::string()) +
         R"(order by m.date asc
limit ?2)";
}

std::string attachmentsQuery(const std::vector<std::int64_t>& rowIds, bool hasSensitiveColumn) {
  std::string ids;
  for (const auto id : rowIds) {
    if (!ids.empty()) ids += ",";
    ids += std::to_string(id);
  }
  return R"(select j.message_id,
       a.guid,
       a.transfer_name,
       a.filename,
       a.uti,
       a.mime_type,
       a.total_bytes,
       a.is_sticker,
       )" + std::string(hasSensitiveColumn ? "a.is_commsafety_sensitive" : "0") + R"(
from message_attachment_join j
join attachment a on a.ROWID = j.attachment_id
where j.message_id in ()" + ids + R"()
order by j.message_id asc, a.ROWID asc)";
}

std::string tapbacksQuery(bool hasEmojiColumn) {
  return R"(select m.ROWID,
       m.associated_message_type,
       m.associated_message_guid,
       m.is_from_me,
       h.id,
       m.date,
       c.service_name,
       )" + std::string(hasEmojiColumn ? "m.associated_message_emoji" : "null") + R"(
-- The unary plus keeps SQLite from walking every row in row id order: the date index finds the
-- week's rows, and sorting those costs less than reading years of history on a first pass.
from message m
cross join chat_message_join cmj on cmj.message_id = m.ROWID
cross join chat c on c.ROWID = cmj.chat_id
left join handle h on h.ROWID = m.handle_id
where +m.ROWID > ?1
  and )" + tapbackCondition + R"(
  and )" + dateBoundOf(">=", "?2") + R"(
  and )" + secondsOf("m.date") + R"( >= ?2
order by +m.ROWID asc
limit ?3)";
}

namespace {

// Either time unit of a receipt column as nanoseconds.
std::string nanosecondsOf(std::string_view column) {
  const std::string c(column);
  return "(case when coalesce(" + c + ", 0) > " + threshold + " then " + c + " else coalesce(" + c +
         ", 0) * 1000000000 end)";
}

}  // namespace

std::string receiptsQuery(bool hasTapbackColumn) {
  const std::string readAt = nanosecondsOf("m.date_read");
  const std::string deliveredAt = "(case when m.is_delivered = 1 then " + nanosecondsOf("m.date_delivered") + " else 0 end)";
  const std::string changed = "max(" + readAt + ", " + deliveredAt + ")";
  return "select m.guid,\n       " + readAt + " as read_at,\n       " + deliveredAt + R"( as delivered_at,
       c.service_name
from message m
cross join chat_message_join cmj on cmj.message_id = m.ROWID
cross join chat c on c.ROWID = cmj.chat_id
where m.is_from_me = 1
  and m.service = 'iMessage'
)" + (hasTapbackColumn ? "  and not " + tapbackCondition + "\n" : std::string()) +
         "  and " + dateBoundOf(">=", "?2") + "\n  and " + secondsOf("m.date") + " >= ?2\n  and " + changed +
         " > ?1\norder by " + changed + " asc\nlimit ?3";
}

std::string outboundSendsQuery() {
  return R"(select m.guid,
       c.chat_identifier,
       m.date,
       m.error,
       m.is_sent,
       coalesce(m.text = char(65532), 0)
from message m
cross join chat_message_join cmj on cmj.message_id = m.ROWID
cross join chat c on c.ROWID = cmj.chat_id
where m.is_from_me = 1
  and )" + dateBoundOf(">=", "?1") + R"(
  and )" + secondsOf("m.date") + R"( >= ?1
order by m.date asc
limit ?2)";
}

// The chat drives the joins here: its identifier index finds the one chat, and the join
// table's chat index its messages.
const std::string theirNewestServiceQuery = R"(select m.service
from chat c
cross join chat_message_join cmj on cmj.chat_id = c.ROWID
cross join message m on m.ROWID = cmj.message_id
where c.chat_identifier = ?1
  and m.is_from_me = 0
  and m.service is not null
  and m.service <> ''
order by m.date desc, m.ROWID desc
limit 1)";

namespace {

constexpr std::string_view conversationGuidSql = "select guid from chat where chat_identifier = ?1 limit 1";

std::int64_t sizeOnDisk(const std::optional<std::string>& path) {
  if (!path) return 0;
  std::error_code error;
  const auto size = fs::file_size(*path, error);
  return error ? 0 : static_cast<std::int64_t>(size);
}

ChatDatabase::Attachment attachmentFrom(const SqliteStatement& row) {
  const auto transferName = nonEmpty(row.text(2));
  const auto storedPath = nonEmpty(row.text(3));
  std::string filename = "attachment";
  if (transferName) {
    filename = *transferName;
  } else if (storedPath) {
    const auto last = fs::path(*storedPath).filename().string();
    if (!last.empty()) filename = last;
  }
  ChatDatabase::Attachment attachment;
  attachment.guid = storeText(row.text(1));
  attachment.mimeType = resolveAttachmentMimeType(row.text(5), row.text(4), filename);
  attachment.filename = std::move(filename);
  if (storedPath) attachment.localPath = expandedHome(*storedPath);
  const auto totalBytes = row.integer(6);
  attachment.sizeBytes = totalBytes > 0 ? totalBytes : sizeOnDisk(attachment.localPath);
  if (row.integer(7) == 1) attachment.providerHint = "sticker";
  attachment.sensitive = row.integer(8) == 1;
  return attachment;
}

using AttachmentsByRow = std::map<std::int64_t, std::vector<ChatDatabase::Attachment>>;

// The files of all `rowIds` in one query; the reason in words when the store cannot give them.
boost::system::result<AttachmentsByRow, std::string> attachmentsFor(SqliteConnection& connection,
                                                                    const std::vector<std::int64_t>& rowIds) {
  auto columns = connection.columnNames("attachment");
  if (!columns) return "reading attachments: " + columns.error();
  if (auto problem = shapeProblem("attachment", *columns, attachmentRequired)) return *problem;
  AttachmentsByRow found;
  if (rowIds.empty()) return found;
  auto statement = connection.prepare(attachmentsQuery(rowIds, has(*columns, "is_commsafety_sensitive")));
  if (!statement) return "reading attachments: " + statement.error();
  while (statement->step()) {
    if (statement->isNull(1)) continue;
    found[statement->integer(0)].push_back(attachmentFrom(*statement));
  }
  return found;
}

std::optional<ChatDatabase::Message> messageFrom(const SqliteStatement& row) {
  if (row.isNull(0) || row.isNull(1)) return std::nullopt;
  ChatDatabase::Message message;
  message.guid = storeText(row.text(0));
  message.chatIdentifier = storeText(row.text(1));
  message.isFromMe = row.integer(2) == 1;
  message.handle = nonEmpty(row.text(3));
  message.text = storeText(row.text(4));
  if (message.text.empty()) {
    const auto body = row.blob(8);
    if (!body.empty()) message.text = plainTextFromTypedStream(body).value_or("");
  }
  message.date = ChatDatabase::appleTimeToDate(row.integer(5));
  message.isSMS = ChatDatabase::filesAsSMS(row.text(6));
  message.isGroup = row.integer(7) > 2;
  message.groupName = nonEmpty(row.text(9));
  message.rowId = row.integer(10);
  return message;
}

std::string trimmed(std::string_view text) {
  const auto isSpace = [](unsigned char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; };
  while (!text.empty() && isSpace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
  while (!text.empty() && isSpace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
  return std::string(text);
}

// One readout: unavailable when `message` lacks a column in `wanted`; otherwise the statement
// `sql` makes from the message columns, bound by `bind`, with each row mapped by `rowFrom`. A
// statement that cannot be prepared fails with `prefix` and SQLite's words.
template <class Row, class Sql, class Bind, class RowFrom>
ChatDatabase::Result<ChatDatabase::Readout<Row>> readRows(SqliteConnection& connection,
                                                          const std::vector<std::string_view>& wanted,
                                                          std::string_view clause, std::string_view prefix, Sql sql,
                                                          Bind bind, RowFrom rowFrom) {
  auto messageColumns = columnsOf(connection, "message");
  if (!messageColumns) return messageColumns.error();
  ChatDatabase::Readout<Row> readout;
  readout.unavailableReason = unavailableBecause(*messageColumns, wanted, clause);
  if (readout.unavailableReason) return readout;
  auto statement = connection.prepare(sql(*messageColumns));
  if (!statement) return Failure::query(std::string(prefix) + statement.error());
  bind(*statement);
  while (statement->step()) readout.rows.push_back(rowFrom(*statement));
  return readout;
}

}  // namespace

std::string ChatDatabase::defaultPath() {
  const char* home = std::getenv("HOME");
  return (fs::path(home ? home : "") / "Library" / "Messages" / "chat.db").string();
}

bool ChatDatabase::isReadable() const {
  auto connection = openDirect(path);
  if (!connection || !*connection) return false;
  auto statement = (*connection)->prepare("select count(*) from sqlite_master");
  return statement && statement->step();
}

ChatDatabase::Result<void> ChatDatabase::verifySchema() const {
  auto connection = openDirect(path);
  if (!connection) return connection.error();
  return checkRequired(**connection);
}

ChatDatabase::Result<ChatDatabase::Reading> ChatDatabase::reading() const {
  auto snapshot = ChatSnapshot::take(path);
  if (!snapshot) return snapshot.error();
  return Reading(std::move(*snapshot));
}

ChatDatabase::Reading::Reading(std::unique_ptr<ChatSnapshot> snapshot) : snapshot_(std::move(snapshot)) {}
ChatDatabase::Reading::~Reading() = default;
ChatDatabase::Reading::Reading(Reading&&) noexcept = default;

ChatDatabase::Result<ChatDatabase::MessageBatch> ChatDatabase::Reading::messages(SystemTime after, int limit) {
  return readMessages(snapshot_->connection(), after, limit);
}

ChatDatabase::Result<ChatDatabase::MessageBatch> readMessages(SqliteConnection& connection, SystemTime after,
                                                              int limit) {
  using Message = ChatDatabase::Message;
  using MessageBatch = ChatDatabase::MessageBatch;
  if (auto checked = checkRequired(connection); !checked) return checked.error();
  auto messageColumns = columnsOf(connection, "message");
  if (!messageColumns) return messageColumns.error();

  auto statement = connection.prepare(messagesQuery(has(*messageColumns, "associated_message_type")));
  if (!statement) return Failure::query(statement.error());
  statement->bind(1, ChatDatabase::appleSeconds(after));
  statement->bind(2, static_cast<std::int64_t>(limit));
  std::vector<Message> read;
  MessageBatch batch;
  while (statement->step()) {
    ++batch.rowsRead;
    if (auto message = messageFrom(*statement)) read.push_back(std::move(*message));
  }

  std::vector<std::int64_t> rowIds;
  for (const auto& message : read) rowIds.push_back(message.rowId);
  auto files = attachmentsFor(connection, rowIds);
  if (!files) batch.attachmentsUnavailable = files.error();
  for (auto& message : read) {
    if (!batch.newestDate || message.date > *batch.newestDate) batch.newestDate = message.date;
    if (files) {
      if (auto found = files->find(message.rowId); found != files->end()) message.attachments = std::move(found->second);
    }
    if (message.text.empty() && message.attachments.empty()) {
      ++batch.skippedWithoutText;
      continue;
    }
    batch.messages.push_back(std::move(message));
  }
  return batch;
}

ChatDatabase::Result<ChatDatabase::TapbackReadout> ChatDatabase::Reading::tapbacks(std::int64_t afterRowId,
                                                                                   SystemTime since, int limit) {
  return readRows<Tapback>(
      snapshot_->connection(), tapbackRequired, "so tapbacks cannot be read from it", "reading tapbacks: ",
      [](const Columns& columns) { return tapbacksQuery(has(columns, "associated_message_emoji")); },
      [&](SqliteStatement& statement) {
        statement.bind(1, afterRowId);
        statement.bind(2, appleSeconds(since));
        statement.bind(3, static_cast<std::int64_t>(limit));
      },
      [](const SqliteStatement& row) {
        Tapback tapback;
        tapback.rowId = row.integer(0);
        tapback.type = row.integer(1);
        tapback.targetGuid = targetGuid(storeText(row.text(2))).value_or("");
        tapback.fromMe = row.integer(3) == 1;
        tapback.reactorKey = tapback.fromMe ? std::string(ownReactorKey) : storeText(row.text(4));
        tapback.date = appleTimeToDate(row.integer(5));
        tapback.isSMS = filesAsSMS(row.text(6));
        if (auto emoji = row.text(7)) tapback.emoji = repairedUtf8(*emoji);
        return tapback;
      });
}

ChatDatabase::Result<ChatDatabase::ReceiptReadout> ChatDatabase::Reading::receipts(std::int64_t changedAfter,
                                                                                   SystemTime sentSince, int limit) {
  return readRows<Receipt>(
      snapshot_->connection(), receiptRequired, "so delivery and read receipts cannot be read from it", "reading receipts: ",
      [](const Columns& columns) { return receiptsQuery(has(columns, "associated_message_type")); },
      [&](SqliteStatement& statement) {
        statement.bind(1, changedAfter);
        statement.bind(2, appleSeconds(sentSince));
        statement.bind(3, static_cast<std::int64_t>(limit));
      },
      [](const SqliteStatement& row) {
        const auto readAt = row.integer(1);
        const auto deliveredAt = row.integer(2);
        Receipt receipt;
        receipt.guid = storeText(row.text(0));
        receipt.status = readAt > 0 ? "read" : "delivered";
        receipt.at = appleTimeToDate(readAt > 0 ? readAt : deliveredAt);
        receipt.changedAt = std::max(readAt, deliveredAt);
        receipt.isSMS = filesAsSMS(row.text(3));
        return receipt;
      });
}

ChatDatabase::Result<ChatDatabase::DeliveryReadout> ChatDatabase::Reading::outboundSends(SystemTime at, int limit) {
  return readRows<SendRecord>(
      snapshot_->connection(), deliveryRequired, "so whether a send was refused cannot be read from it", "",
      [](const Columns&) { return outboundSendsQuery(); },
      [&](SqliteStatement& statement) {
        statement.bind(1, appleSeconds(at));
        statement.bind(2, static_cast<std::int64_t>(limit));
      },
      [](const SqliteStatement& row) {
        return SendRecord{storeText(row.text(0)), storeText(row.text(1)), appleTimeToDate(row.integer(2)),
                          row.integer(3), row.integer(4) == 1, row.integer(5) == 1};
      });
}

ChatDatabase::Result<std::optional<std::string>> ChatDatabase::Reading::conversationGuid(
    std::string_view chatIdentifier) {
  auto statement = snapshot_->connection().prepare(conversationGuidSql);
  if (!statement) return Failure::query(statement.error());
  statement->bind(1, chatIdentifier);
  if (!statement->step()) return std::optional<std::string>();
  return nonEmpty(statement->text(0));
}

ChatDatabase::Result<ChatDatabase::ReplyAddress> ChatDatabase::Reading::replyAddress(std::string_view chatIdentifier) {
  auto guid = conversationGuid(chatIdentifier);
  if (!guid) return guid.error();
  ReplyAddress address{std::move(*guid), std::nullopt};
  auto service = snapshot_->connection().prepare(theirNewestServiceQuery);
  if (!service) return Failure::query(service.error());
  service->bind(1, chatIdentifier);
  if (service->step()) address.theirNewestService = nonEmpty(service->text(0));
  return address;
}

namespace {

// Each single read takes a copy of its own, read once and removed.
template <class Read>
auto readOnce(const ChatDatabase& database, Read read) -> decltype(read(std::declval<ChatDatabase::Reading&>())) {
  auto reading = database.reading();
  if (!reading) return reading.error();
  return read(*reading);
}

}  // namespace

ChatDatabase::Result<ChatDatabase::MessageBatch> ChatDatabase::messages(SystemTime after, int limit) const {
  return readOnce(*this, [&](Reading& reading) { return reading.messages(after, limit); });
}

ChatDatabase::Result<ChatDatabase::TapbackReadout> ChatDatabase::tapbacks(std::int64_t afterRowId, SystemTime since,
                                                                          int limit) const {
  return readOnce(*this, [&](Reading& reading) { return reading.tapbacks(afterRowId, since, limit); });
}

ChatDatabase::Result<ChatDatabase::ReceiptReadout> ChatDatabase::receipts(std::int64_t changedAfter,
                                                                          SystemTime sentSince, int limit) const {
  return readOnce(*this, [&](Reading& reading) { return reading.receipts(changedAfter, sentSince, limit); });
}

ChatDatabase::Result<ChatDatabase::DeliveryReadout> ChatDatabase::outboundSends(SystemTime at, int limit) const {
  return readOnce(*this, [&](Reading& reading) { return reading.outboundSends(at, limit); });
}

ChatDatabase::Result<ChatDatabase::ReplyAddress> ChatDatabase::replyAddress(std::string_view chatIdentifier) const {
  return readOnce(*this, [&](Reading& reading) { return reading.replyAddress(chatIdentifier); });
}

ChatDatabase::Result<std::optional<std::string>> ChatDatabase::conversationGuid(std::string_view chatIdentifier) const {
  return readOnce(*this, [&](Reading& reading) { return reading.conversationGuid(chatIdentifier); });
}

ChatDatabase::Result<std::optional<std::string>> ChatDatabase::attachmentBytes(const std::string& path,
                                                                               std::size_t upTo) {
  if (auto problem = storeFileProblem(path)) {
    if (problem->kind() == Failure::Kind::notFound) return std::optional<std::string>();
    return *problem;
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) return Failure::permissionDenied(path);
  // Read in pieces, so that a small file costs a small buffer and a large one stops at the
  // limit's first byte beyond.
  constexpr std::size_t piece = 1 << 16;
  std::string bytes;
  while (bytes.size() <= upTo) {
    const auto offset = bytes.size();
    const auto wanted = std::min(piece, upTo + 1 - offset);
    bytes.resize(offset + wanted);
    file.read(bytes.data() + offset, static_cast<std::streamsize>(wanted));
    bytes.resize(offset + static_cast<std::size_t>(file.gcount()));
    if (file.bad()) return Failure::permissionDenied(path);
    if (!file) break;
  }
  if (bytes.size() > upTo) return std::optional<std::string>();
  return std::optional<std::string>(std::move(bytes));
}

bool ChatDatabase::filesAsSMS(const std::optional<std::string>& chatServiceName) {
  if (!chatServiceName) return true;
  std::string lower = *chatServiceName;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower != "imessage";
}

std::optional<ChatDatabase::TapbackMeaning> ChatDatabase::tapbackMeaning(std::int64_t type,
                                                                         const std::optional<std::string>& customEmoji) {
  static constexpr std::string_view fixed[] = {"❤️", "👍", "👎", "😂", "‼️", "❓"};
  if (type >= 2000 && type <= 2005) return TapbackMeaning{true, std::string(fixed[type - 2000])};
  if (type == 2006) {
    if (!customEmoji) return std::nullopt;
    auto emoji = trimmed(*customEmoji);
    if (emoji.empty()) return std::nullopt;
    return TapbackMeaning{true, std::move(emoji)};
  }
  if (type >= 3000 && type <= 3006) return TapbackMeaning{false, std::nullopt};
  return std::nullopt;
}

std::optional<std::string> ChatDatabase::targetGuid(std::string_view associated) {
  auto guid = trimmed(associated);
  if (guid.starts_with("bp:")) {
    guid.erase(0, 3);
  } else if (guid.starts_with("p:")) {
    const auto slash = guid.find('/');
    guid = slash == std::string::npos ? std::string() : guid.substr(slash + 1);
  }
  if (guid.empty()) return std::nullopt;
  return guid;
}

SystemTime ChatDatabase::appleTimeToDate(std::int64_t raw) {
  using namespace std::chrono;
  const SystemTime appleEpoch{seconds(appleEpochUnixSeconds)};
  // Nanoseconds are kept whole rather than divided as a double, which would land a hair before
  // the instant and show the millisecond before it. A damaged row may hold any integer: the
  // result is kept within what the clock can count (about ±292 years around 1970). The cast is
  // spelled out: where the system clock counts microseconds (Apple's libc++), nanoseconds do not
  // convert to its time points by themselves.
  if (raw > nanosecondThreshold) {
    return appleEpoch + duration_cast<SystemTime::duration>(nanoseconds(std::min<std::int64_t>(raw, 8'000'000'000'000'000'000)));
  }
  return appleEpoch + seconds(std::clamp<std::int64_t>(raw, -8'000'000'000, 8'000'000'000));
}

std::int64_t ChatDatabase::appleSeconds(SystemTime instant) {
  const auto sinceApple = instant - SystemTime(std::chrono::seconds(appleEpochUnixSeconds));
  return std::chrono::duration_cast<std::chrono::seconds>(sinceApple).count();
}

}  // namespace quarl

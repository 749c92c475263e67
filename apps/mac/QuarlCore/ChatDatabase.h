#pragma once

#include <boost/system/result.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ChatDatabaseFailure.h"
#include "Clock.h"

namespace quarl {

class ChatSnapshot;

// The only code that touches the macOS Messages store. It never writes to it: every query runs
// on a private snapshot copy that is thrown away afterwards. Each call opens its own
// connection on its own copy, so calls may run at the same time on different threads; every
// call blocks, so callers run them on a worker, never on the main executor.
struct ChatDatabase {
  using Failure = ChatDatabaseFailure;
  template <class T>
  using Result = boost::system::result<T, Failure>;

  struct Attachment {
    std::string guid;
    std::string filename;  // the name to show
    std::string mimeType;
    std::int64_t sizeBytes = 0;
    std::optional<std::string> providerHint;  // "sticker" for stickers
    bool sensitive = false;                   // the store's communication-safety flag
    std::optional<std::string> localPath;     // with a leading "~" expanded
    friend bool operator==(const Attachment&, const Attachment&) = default;
  };

  struct Message {
    std::string guid;
    std::string chatIdentifier;
    bool isFromMe = false;
    std::optional<std::string> handle;
    std::string text;
    SystemTime date;
    bool isSMS = false;
    bool isGroup = false;
    std::optional<std::string> groupName;
    std::vector<Attachment> attachments;
    std::int64_t rowId = 0;  // joins the message to its files; never leaves the reader's callers
  };

  struct MessageBatch {
    std::vector<Message> messages;
    // The date of the newest row read, skipped ones included, so a caller can move past them.
    std::optional<SystemTime> newestDate;
    int skippedWithoutText = 0;
    // Every row the statement gave, those without a guid or a conversation too: a batch of
    // `limit` rows may have more behind it.
    int rowsRead = 0;
    std::optional<std::string> attachmentsUnavailable;
  };

  // A reaction row as the store has it. `type` and `emoji` are kept raw so that the caller
  // decides what the row means with tapbackMeaning; `targetGuid` is empty when the row names
  // no message the reader can make out.
  struct Tapback {
    std::int64_t rowId = 0;
    std::int64_t type = 0;
    std::string targetGuid;
    std::string reactorKey;  // the sender's handle, ownReactorKey for the owner, empty when unknown
    bool fromMe = false;
    std::optional<std::string> emoji;  // the custom emoji column, for type 2006
    SystemTime date;
    bool isSMS = false;
  };

  struct Receipt {
    std::string guid;
    std::string status;  // "read" or "delivered"
    SystemTime at;
    std::int64_t changedAt = 0;  // nanoseconds since the Apple reference instant; orders receipts
    bool isSMS = false;
  };

  struct SendRecord {
    std::string guid;
    std::string chatIdentifier;
    SystemTime date;
    std::int64_t errorCode = 0;
    bool isSent = false;
    bool carriesFile = false;  // its text is the object replacement character Messages writes for a file
  };

  struct ReplyAddress {
    std::optional<std::string> guid;
    std::optional<std::string> theirNewestService;
  };

  // Rows, or the sentence saying why this store cannot give them. Unavailable is not an error:
  // the store lacks columns the reader needs, and the caller reports it.
  template <class Row>
  struct Readout {
    std::vector<Row> rows;
    std::optional<std::string> unavailableReason;
  };
  using TapbackReadout = Readout<Tapback>;
  using ReceiptReadout = Readout<Receipt>;
  using DeliveryReadout = Readout<SendRecord>;

  struct TapbackMeaning {
    bool adds = false;
    std::optional<std::string> emoji;  // none when the reaction is taken away
    friend bool operator==(const TapbackMeaning&, const TapbackMeaning&) = default;
  };

  static constexpr std::string_view ownReactorKey = "me";
  static constexpr std::int64_t nanosecondThreshold = 1'000'000'000'000;

  std::string path;

  // The store under the home folder: $HOME/Library/Messages/chat.db.
  static std::string defaultPath();

  // Whether this process may read the store: it opens read-only and counts sqlite_master.
  bool isReadable() const;
  // Checks the tables and columns every reader needs, on the live file (read-only).
  Result<void> verifySchema() const;

  // One private copy of the store that several readers share: a pass that reads messages,
  // reactions and receipts copies the store once, and every reader sees it as of that copy.
  // The copy is removed when the reading goes. Not for two threads at once.
  class Reading {
   public:
    explicit Reading(std::unique_ptr<ChatSnapshot> snapshot);
    ~Reading();
    Reading(Reading&&) noexcept;

    // Messages dated strictly after `after`, oldest first.
    Result<MessageBatch> messages(SystemTime after, int limit);
    Result<TapbackReadout> tapbacks(std::int64_t afterRowId, SystemTime since, int limit);
    Result<ReceiptReadout> receipts(std::int64_t changedAfter, SystemTime sentSince, int limit);
    // The owner's own rows dated at or after `at`, for confirming a send.
    Result<DeliveryReadout> outboundSends(SystemTime at, int limit);
    Result<ReplyAddress> replyAddress(std::string_view chatIdentifier);
    Result<std::optional<std::string>> conversationGuid(std::string_view chatIdentifier);

   private:
    std::unique_ptr<ChatSnapshot> snapshot_;
  };
  Result<Reading> reading() const;

  // Each of these reads a copy of its own.
  Result<MessageBatch> messages(SystemTime after, int limit) const;
  Result<TapbackReadout> tapbacks(std::int64_t afterRowId, SystemTime since, int limit) const;
  Result<ReceiptReadout> receipts(std::int64_t changedAfter, SystemTime sentSince, int limit) const;
  Result<DeliveryReadout> outboundSends(SystemTime at, int limit) const;
  Result<ReplyAddress> replyAddress(std::string_view chatIdentifier) const;
  Result<std::optional<std::string>> conversationGuid(std::string_view chatIdentifier) const;

  // The bytes of an attachment file, or none when the file is missing or larger than `upTo`.
  // At most `upTo` + 1 bytes are read, so a large file is never read whole to learn its size.
  static Result<std::optional<std::string>> attachmentBytes(const std::string& path, std::size_t upTo);

  // True unless the service is iMessage. A chat with no service name files as SMS too: only a
  // chat the store says is iMessage is treated as one.
  static bool filesAsSMS(const std::optional<std::string>& chatServiceName);
  static std::optional<TapbackMeaning> tapbackMeaning(std::int64_t type, const std::optional<std::string>& customEmoji);
  static std::optional<std::string> targetGuid(std::string_view associated);
  static SystemTime appleTimeToDate(std::int64_t raw);
  // An instant as the store's query parameters count it: whole seconds since 2001-01-01, truncated.
  static std::int64_t appleSeconds(SystemTime instant);
};

}  // namespace quarl

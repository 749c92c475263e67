#include "MessagesCapture.h"

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "DateText.h"
#include "MessageEvents.h"
#include "MessageEventsPass.h"
#include "QuarlLog.h"
#include "SettingsKeys.h"
#include "Workers.h"

namespace quarl {
namespace asio = boost::asio;
namespace json = boost::json;
using Kind = ChatDatabaseCaptureReport::Kind;

namespace {

// Receipts and reactions older than this are not looked for: the row id and the ledger's
// watermark do the real work, and a first pass does not send years of history.
constexpr std::chrono::hours eventsLookBack{7 * 24};
// Guids handed over are remembered this long, longer than any overlap the cursor re-reads and
// than the live window that runs ahead of it.
constexpr std::chrono::hours rememberFor{6};

using Batch = ChatDatabase::Result<ChatDatabase::MessageBatch>;
using Opened = ChatDatabase::Result<std::shared_ptr<ChatDatabase::Reading>>;

asio::awaitable<Opened> openReading(std::string path) {
  Opened opened = ChatDatabase::Failure::query("the store was not read");
  co_await runOnWorker([&] {
    auto reading = ChatDatabase{path}.reading();
    if (reading) {
      opened = std::make_shared<ChatDatabase::Reading>(std::move(*reading));
    } else {
      opened = reading.error();
    }
  });
  co_return opened;
}

// The messages of a copy, or why there is no copy to read.
asio::awaitable<Batch> readMessages(Opened opened, SystemTime after, int limit) {
  if (!opened) co_return opened.error();
  Batch batch = ChatDatabase::Failure::query("the store was not read");
  co_await runOnWorker([&] { batch = (*opened)->messages(after, limit); });
  co_return batch;
}

// The copy goes on a worker too: removing a plain copy of a large store takes a while.
asio::awaitable<void> closeReading(std::shared_ptr<ChatDatabase::Reading> reading) {
  co_await runOnWorker([&] { reading.reset(); });
}

asio::awaitable<ChatDatabase::Result<std::optional<std::string>>> readAttachment(std::string path) {
  ChatDatabase::Result<std::optional<std::string>> bytes = std::optional<std::string>();
  co_await runOnWorker([&] { bytes = ChatDatabase::attachmentBytes(path, inboundAttachmentLimit); });
  co_return bytes;
}

struct EventReadouts {
  ChatDatabase::Result<ChatDatabase::TapbackReadout> tapbacks = ChatDatabase::TapbackReadout{};
  ChatDatabase::Result<ChatDatabase::ReceiptReadout> receipts = ChatDatabase::ReceiptReadout{};
};

asio::awaitable<EventReadouts> readEvents(std::shared_ptr<ChatDatabase::Reading> reading, std::int64_t afterRowId,
                                          std::int64_t changedAfter, SystemTime since) {
  EventReadouts readouts;
  co_await runOnWorker([&] {
    readouts.tapbacks = reading->tapbacks(afterRowId, since, MessageEventsPass::tapbackLimit);
    readouts.receipts = reading->receipts(changedAfter, since, MessageEventsPass::receiptLimit);
  });
  co_return readouts;
}

asio::awaitable<bool> postEventBatch(BrainClient* client, std::string channelId, json::array events) {
  auto posted = co_await client->postMessageEvents(std::move(channelId), std::move(events));
  if (!posted) QuarlLog::messageEvents({MessageEventsNote::Kind::batchRefused, posted.error().description()});
  co_return posted.has_value();
}

void logUnobservable(const ChatDatabase::TapbackReadout& tapbacks, const ChatDatabase::ReceiptReadout& receipts) {
  if (tapbacks.unavailableReason) {
    QuarlLog::messageEvents({MessageEventsNote::Kind::unobservable, *tapbacks.unavailableReason});
  }
  if (receipts.unavailableReason) {
    QuarlLog::messageEvents({MessageEventsNote::Kind::unobservable, *receipts.unavailableReason});
  }
}

// Why a pass stopped at a message the service did not take.
Kind kindFor(const BrainClientFailure& failure) {
  if (failure.isTransport()) return Kind::brainUnreachable;
  if (failure.isDecoding()) return Kind::unexpectedAnswer;
  if (const auto* http = failure.asHttp()) {
    const bool later = http->status >= 500 || http->status == 408 || http->status == 429;
    return later ? Kind::brainUnreachable : Kind::ingestRefused;
  }
  return Kind::other;
}

OutgoingAttachment outgoing(const ChatDatabase::Attachment& attachment) {
  OutgoingAttachment file{attachment.guid, attachment.filename, attachment.mimeType, attachment.sizeBytes};
  file.providerHint = attachment.providerHint;
  file.sensitive = attachment.sensitive;
  return file;
}

// ", <before><count><after>" when there is something to count.
std::string countClause(int count, const std::string& before, const std::string& after) {
  return count > 0 ? ", " + before + std::to_string(count) + after : std::string();
}

}  // namespace

struct MessagesCapture::PassCounts {
  int read = 0;
  int ingested = 0;
  int skippedWithoutText = 0;
  int droppedSms = 0;
  int alreadySent = 0;
  int failed = 0;
  AttachmentOutcome files;
  std::optional<Kind> failure;
  std::optional<SystemTime> stoppedAt;  // the date of the message the service did not take
  bool sessionGone = false;
};

std::optional<std::string> senderIdentifierKind(const std::string& identifier) {
  if (identifier.find('@') != std::string::npos) return "email";
  const bool number = !identifier.empty() && identifier.find_first_not_of("+0123456789 ()-.") == std::string::npos &&
                      identifier.find_first_of("0123456789") != std::string::npos;
  if (number) return "phone";
  return std::nullopt;
}

IngestMessage ingestMessageFor(const ChatDatabase::Message& message, const std::string& channelId,
                               const std::optional<std::string>& senderDisplayName) {
  IngestMessage ingest{.channelId = channelId,
                       .externalThreadId = message.chatIdentifier,
                       .externalMessageId = message.guid,
                       .direction = message.isFromMe ? "outbound" : "inbound",
                       .body = message.text,
                       .sentAt = message.date,
                       .threadKind = message.isGroup ? "group" : "direct",
                       .threadTitle = message.groupName};
  if (!message.isFromMe && message.handle) {
    ingest.senderIdentifier = message.handle;
    ingest.senderIdentifierKind = senderIdentifierKind(*message.handle);
    ingest.senderDisplayName = senderDisplayName;
  }
  for (const auto& attachment : message.attachments) ingest.attachments.push_back(outgoing(attachment));
  return ingest;
}

MessagesCapture::MessagesCapture(std::shared_ptr<const Clock> clock, std::shared_ptr<SettingsStore> defaults,
                                 std::shared_ptr<CompanionHost> host, std::string storePath)
    : clock_(std::move(clock)),
      defaults_(std::move(defaults)),
      host_(std::move(host)),
      storePath_(std::move(storePath)),
      ingested_(IngestedRecently::decoded(defaults_->read(keys::ingestedRecently).value_or(json::value()))) {}

CaptureCursor MessagesCapture::loadCursor() const {
  if (auto stored = defaults_->read(keys::captureCursor)) {
    if (auto cursor = CaptureCursor::decoded(*stored)) return *cursor;
  }
  return CaptureCursor::initial(clock_->now(), initialCursorDays);
}

void MessagesCapture::saveCursor(const CaptureCursor& cursor) { defaults_->write(keys::captureCursor, cursor.encoded()); }

// The timers are signals only: they never expire by themselves and are cancelled when a pass ends.
asio::awaitable<void> MessagesCapture::untilNoPassRuns() {
  while (passRunning_) {
    auto signal = std::make_shared<asio::steady_timer>(co_await asio::this_coro::executor,
                                                       asio::steady_timer::time_point::max());
    waitingForPass_.push_back(signal);
    co_await signal->async_wait(asio::as_tuple(asio::use_awaitable));
  }
}

void MessagesCapture::passEnded() {
  passRunning_ = false;
  for (auto& signal : waitingForPass_) signal->cancel();
  waitingForPass_.clear();
}

bool MessagesCapture::ReadWhole::matches(const StoreFingerprint& seen, const CaptureChannels& now) const {
  return store == seen && channels.imessage == now.imessage && channels.sms == now.sms;
}

asio::awaitable<MessagesCapture::End> MessagesCapture::capture(BrainClient& client, CaptureChannels channels) {
  co_await untilNoPassRuns();
  passRunning_ = true;
  // Taken before the copy, so that a write landing while the pass runs is read by the next one.
  const auto seen = StoreFingerprint::of(storePath_);
  if (tickRead_ && tickRead_->matches(seen, channels)) {
    if (report_) report_->at = clock_->now();
    passEnded();
    if (liveAskedWhileRunning_) co_await captureRecentFirst(client, channels);
    co_return End::done;
  }
  PassCounts counts;
  auto cursor = loadCursor();
  const auto since = cursor.lastMessageDate;
  ChatDatabaseCaptureReport report;
  report.since = since;
  bool drained = false;
  auto opened = co_await openReading(storePath_);
  for (;;) {
    const auto readAt = clock_->now();
    auto batch = co_await readMessages(opened, cursor.lastMessageDate, fullPassLimit);
    if (!batch) {
      counts.failure = ChatDatabaseCaptureReport::kindOf(batch.error());
      QuarlLog::say("quarl: capture could not read Messages — " + batch.error().description());
      break;
    }
    const bool full = batch->rowsRead >= fullPassLimit;
    const auto newest = batch->newestDate;
    if (batch->attachmentsUnavailable) {
      report.attachmentsUnavailable = batch->attachmentsUnavailable;
      QuarlLog::say("quarl: capture could not read attachments at all — " + *batch->attachmentsUnavailable);
    }
    counts.skippedWithoutText += batch->skippedWithoutText;
    const bool handedOver = co_await handOver(client, channels, std::move(*batch), counts, false);
    if (handedOver && !full) caughtUpAt_ = readAt;
    // What went before the message the pass stopped at is with the service; the overlap keeps
    // the cursor before that message.
    if (counts.stoppedAt) {
      cursor.advance(*counts.stoppedAt, cursorOverlap);
      saveCursor(cursor);
    }
    drained = handedOver && !full;
    if (!handedOver || !newest) break;
    const auto before = cursor.lastMessageDate;
    cursor.advance(*newest, cursorOverlap);
    saveCursor(cursor);
    // A batch that did not move the cursor would come back the same; the next tick goes on.
    if (!full || cursor.lastMessageDate == before) break;
  }
  QuarlLog::say("quarl: capture read " + std::to_string(counts.read) + " message(s) since " + iso8601(since) +
                countClause(counts.skippedWithoutText, "skipped ", " without text or files") +
                countClause(counts.droppedSms, "DROPPED ", " SMS because the SMS channel is not connected") +
                countClause(counts.alreadySent, "", " already sent"));
  if (auto line = attachmentLine(counts.files)) QuarlLog::say("quarl: capture " + *line);
  report.kind = counts.failure.value_or(Kind::ok);
  report.at = clock_->now();
  report.read = counts.read;
  report.ingested = counts.ingested;
  report.skippedWithoutText = counts.skippedWithoutText;
  report.droppedSms = counts.droppedSms;
  report.alreadySent = counts.alreadySent;
  report.failed = counts.failed;
  report_ = report;
  passEnded();
  // A session that is gone fails every call after it the same way.
  if (counts.sessionGone) {
    if (opened) co_await closeReading(std::move(*opened));
    co_return End::sessionGone;
  }
  if (liveAskedWhileRunning_) co_await captureRecentFirst(client, channels);
  if (!opened) co_return End::done;
  const bool eventsSent = co_await captureMessageEvents(client, channels, *opened);
  co_await closeReading(std::move(*opened));
  if (drained && eventsSent) {
    tickRead_ = ReadWhole{seen, channels};
    liveRead_ = tickRead_;
  }
  co_return End::done;
}

asio::awaitable<void> MessagesCapture::captureRecentFirst(BrainClient& client, CaptureChannels channels) {
  if (passRunning_) {
    liveAskedWhileRunning_ = true;
    co_return;
  }
  do {
    liveAskedWhileRunning_ = false;
    passRunning_ = true;
    co_await liveWindowPass(client, channels);
    passEnded();
  } while (liveAskedWhileRunning_);
}

asio::awaitable<void> MessagesCapture::liveWindowPass(BrainClient& client, const CaptureChannels& channels) {
  const auto seen = StoreFingerprint::of(storePath_);
  if (liveRead_ && liveRead_->matches(seen, channels)) co_return;
  auto cursor = loadCursor();
  const auto readAt = clock_->now();
  const auto window = cursor.liveWindow(readAt, liveSpan);
  auto opened = co_await openReading(storePath_);
  auto batch = co_await readMessages(opened, window.since, livePassLimit);
  if (opened) co_await closeReading(std::move(*opened));
  if (!batch) {
    QuarlLog::say("quarl: live pass failed: " + batch.error().description());
    co_return;
  }
  if (batch->attachmentsUnavailable) {
    QuarlLog::say("quarl: live pass could not read attachments at all — " + *batch->attachmentsUnavailable);
  }
  const auto newest = batch->newestDate;
  const bool full = batch->rowsRead >= livePassLimit;
  PassCounts counts;
  const bool handedOver = co_await handOver(client, channels, std::move(*batch), counts, true);
  if (handedOver && !full && window.mayAdvanceCursor) caughtUpAt_ = readAt;
  if (handedOver && !full) liveRead_ = ReadWhole{seen, channels};
  const auto reached = handedOver ? newest : counts.stoppedAt;
  if (window.mayAdvanceCursor && reached) {
    cursor.advance(*reached, cursorOverlap);
    saveCursor(cursor);
  }
  if (counts.ingested > 0) {
    QuarlLog::say("quarl: live pass sent " + std::to_string(counts.ingested) + " recent message(s)");
  }
}

asio::awaitable<bool> MessagesCapture::handOver(BrainClient& client, const CaptureChannels& channels,
                                                ChatDatabase::MessageBatch batch, PassCounts& counts, bool live) {
  bool everyOne = true;
  bool remembered = false;
  if (!batch.messages.empty()) lastReadAt_ = clock_->now();
  for (auto& message : batch.messages) {
    ++counts.read;
    if (ingested_.contains(message.guid)) continue;
    if (message.isFromMe && ownSends_ && ownSends_->claim(message)) {
      QuarlLog::say({{"quarl: capture recognised its own send in ", false}, {message.chatIdentifier, true}});
      ++counts.alreadySent;
      ingested_.record(message.guid, clock_->now());
      remembered = true;
      continue;
    }
    if (message.isSMS && !channels.sms) {
      ++counts.droppedSms;
      continue;
    }
    const auto& channelId = message.isSMS ? *channels.sms : channels.imessage;
    std::optional<std::string> displayName;
    if (!message.isFromMe && message.handle) displayName = host_->contactName(*message.handle);
    auto ingest = ingestMessageFor(message, channelId, displayName);
    auto decisions = co_await client.ingest(std::move(ingest));
    if (!decisions) {
      const auto& failure = decisions.error();
      const auto reason = failure.description();
      // One bad record never blocks the ones after it: the service refused that message for
      // good, so it is counted, passed over and not offered again.
      if (failure.refusesThisRecordOnly()) {
        ++counts.failed;
        ingested_.record(message.guid, clock_->now());
        remembered = true;
        counts.failure = Kind::ingestRefused;
        QuarlLog::say(live ? "quarl: live ingest failed for one message: " + reason
                           : "quarl: capture: Quarl refused message " + message.guid + " — " + reason +
                                 "; passing over it");
        continue;
      }
      // Anything else would fail every message the same way: the pass ends here, and the
      // cursor stays before this message so that nothing after it is lost.
      counts.failure = kindFor(failure);
      counts.stoppedAt = message.date;
      counts.sessionGone = failure.isSessionGone();
      QuarlLog::say((live ? "quarl: live pass failed: " : "quarl: capture stopped before message " + message.guid + " — ") +
                    reason);
      everyOne = false;
      break;
    }
    ++counts.ingested;
    ingested_.record(message.guid, clock_->now());
    remembered = true;
    if (!message.attachments.empty()) counts.files += co_await deliverAttachments(client, message, std::move(*decisions));
  }
  if (remembered) rememberHandedOver();
  co_return everyOne;
}

void MessagesCapture::rememberHandedOver() {
  ingested_.forget(clock_->now() - rememberFor);
  defaults_->write(keys::ingestedRecently, ingested_.encoded());
}

asio::awaitable<AttachmentOutcome> MessagesCapture::deliverAttachments(BrainClient& client,
                                                                       ChatDatabase::Message message,
                                                                       std::vector<AttachmentDecision> decisions) {
  AttachmentOutcome outcome;
  std::vector<bool> named(message.attachments.size(), false);
  for (const auto& decision : decisions) {
    const auto found = std::find_if(message.attachments.begin(), message.attachments.end(),
                                    [&](const ChatDatabase::Attachment& a) { return decision.id && a.guid == *decision.id; });
    if (found == message.attachments.end()) {
      QuarlLog::say("quarl: attachment upload skipped — the brain named a file this scan did not send");
      continue;
    }
    named[static_cast<std::size_t>(found - message.attachments.begin())] = true;
    if (!decision.wantBytes) {
      ++outcome.notWanted;
      continue;
    }
    const auto& file = *found;
    if (!file.localPath) {
      QuarlLog::say({{"quarl: attachment (", false}, {file.filename, true}, {") has no file on this Mac to read", false}});
      ++outcome.failed;
      continue;
    }
    auto bytes = co_await readAttachment(*file.localPath);
    if (!bytes || !*bytes) {
      QuarlLog::say({{"quarl: attachment (", false},
                     {file.filename, true},
                     {") not readable — absent from this Mac, or over the 25 MB limit", false}});
      ++outcome.failed;
      continue;
    }
    auto uploaded = co_await client.uploadInboundAttachment(file.guid, std::move(**bytes));
    if (!uploaded) {
      QuarlLog::say({{"quarl: attachment (", false},
                     {file.filename, true},
                     {") upload failed: " + uploaded.error().description(), false}});
      ++outcome.failed;
      continue;
    }
    ++outcome.sent;
  }
  outcome.unnamed = static_cast<int>(std::count(named.begin(), named.end(), false));
  co_return outcome;
}

asio::awaitable<bool> MessagesCapture::captureMessageEvents(BrainClient& client, CaptureChannels channels,
                                                            SharedReading reading) {
  const auto now = clock_->now();
  auto cursor = loadCursor();
  if (caughtUpAt_ && *caughtUpAt_ > cursor.lastMessageDate) cursor.lastMessageDate = *caughtUpAt_;
  const auto ceiling = MessageEvents::ceiling(cursor, now);
  auto ledger = ReceiptLedger::decoded(defaults_->read(keys::receiptLedger).value_or(json::value()));
  const auto rowId = defaults_->integer(keys::tapbackRowId).value_or(0);
  auto readouts = co_await readEvents(std::move(reading), rowId, ledger.watermark(), now - eventsLookBack);
  if (!readouts.tapbacks || !readouts.receipts) {
    const auto& failure = !readouts.tapbacks ? readouts.tapbacks.error() : readouts.receipts.error();
    QuarlLog::messageEvents({MessageEventsNote::Kind::readFailed, failure.description()});
    co_return false;
  }
  logUnobservable(*readouts.tapbacks, *readouts.receipts);
  MessageEventsPass pass(rowId, std::move(ledger));
  MessageEventsPass::Post post = [&client](std::string channelId, json::array events) {
    return postEventBatch(&client, std::move(channelId), std::move(events));
  };
  // Arguments are named locals: GCC 12 mishandles temporaries built inside a co_await.
  MessageEventsPass::Channels eventChannels{channels.imessage, channels.sms};
  auto tapbacks = std::move(*readouts.tapbacks);
  auto receipts = std::move(*readouts.receipts);
  const auto summary = co_await pass.run(std::move(tapbacks), std::move(receipts), std::move(eventChannels), ceiling, post);
  defaults_->write(keys::tapbackRowId, json::value(pass.tapbackRowId()));
  defaults_->write(keys::receiptLedger, pass.ledger().encoded());
  QuarlLog::messageEvents({MessageEventsNote::Kind::summary, MessageEventsPass::summaryLine(summary)});
  co_return !summary.leftForLater;
}

}  // namespace quarl

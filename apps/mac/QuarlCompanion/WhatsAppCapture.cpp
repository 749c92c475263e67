#include "WhatsAppCapture.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include "QuarlLog.h"
#include "SettingsKeys.h"
#include "WhatsAppSend.h"

namespace quarl {
namespace asio = boost::asio;
namespace json = boost::json;
using WhatsAppWeb::IngestPass;
using WhatsAppWeb::Message;

namespace {

// A phone's JID is its number: the service knows the person by it on every channel. Other
// JIDs (a linked id, "@lid") name no number and go as they are.
void setSender(IngestMessage& ingest, const std::string& jid) {
  if (auto phone = WhatsAppWeb::senderPhone(jid)) {
    ingest.senderIdentifier = std::move(*phone);
    ingest.senderIdentifierKind = "phone";
  } else {
    ingest.senderIdentifier = jid;
  }
}

bool isGroup(const std::string& conversationRef) { return conversationRef.ends_with("@g.us"); }

OutgoingAttachment outgoing(const WhatsAppWeb::Attachment& file, const std::string& messageId) {
  OutgoingAttachment attachment;
  // One file a message at most: the message's id names it.
  attachment.externalId = messageId;
  attachment.mimeType = file.mime.value_or(file.blobType.value_or("application/octet-stream"));
  if (file.filename && !file.filename->empty()) {
    attachment.filename = *file.filename;
  } else {
    const auto slash = attachment.mimeType.find('/');
    const auto subtype = slash == std::string::npos ? std::string() : attachment.mimeType.substr(slash + 1);
    attachment.filename = file.type + (subtype.empty() ? "" : "." + subtype.substr(0, subtype.find(';')));
  }
  attachment.sizeBytes = file.size.value_or(file.have.value_or(file.bytes ? std::int64_t(file.bytes->size()) : 0));
  attachment.ephemeral = file.viewOnce;
  attachment.durationSeconds = file.duration;
  return attachment;
}

std::string failureCode(const BrainClientFailure& failure) {
  const auto* http = failure.asHttp();
  return http ? http->code : std::string();
}

}  // namespace

IngestMessage ingestMessageFor(const Message& message, const std::string& channelId, SystemTime readAt) {
  IngestMessage ingest{.channelId = channelId,
                       .externalThreadId = message.conversationRef,
                       .externalMessageId = message.externalId,
                       .direction = message.isFromMe ? "outbound" : "inbound",
                       .body = message.text,
                       .sentAt = message.sentAt.value_or(readAt),
                       .threadKind = isGroup(message.conversationRef) ? "group" : "direct"};
  if (isGroup(message.conversationRef) && message.conversationTitle && !message.conversationTitle->empty()) {
    ingest.threadTitle = message.conversationTitle;
  }
  if (!message.isFromMe) {
    const auto& sender = isGroup(message.conversationRef) ? message.authorRef : std::optional(message.conversationRef);
    if (sender) setSender(ingest, *sender);
    ingest.senderDisplayName = message.senderName;
    if (!ingest.senderDisplayName && !isGroup(message.conversationRef)) ingest.senderDisplayName = message.conversationTitle;
  }
  for (const auto& file : message.attachments) ingest.attachments.push_back(outgoing(file, message.externalId));
  return ingest;
}

WhatsAppCapture::WhatsAppCapture(std::shared_ptr<const Clock> clock, std::shared_ptr<SettingsStore> defaults)
    : clock_(std::move(clock)), defaults_(std::move(defaults)) {}

void WhatsAppCapture::loadOnce() {
  if (loaded_) return;
  loaded_ = true;
  if (auto saved = defaults_->read(keys::whatsappSentMessages)) {
    if (auto sent = WhatsAppWeb::SentMessages::restored(*saved)) sent_ = std::move(*sent);
  }
  if (auto data = defaults_->data(keys::whatsappPeekSchedule)) {
    boost::system::error_code error;
    const auto parsed = json::parse(*data, error);
    if (!error) {
      if (auto schedule = WhatsAppWeb::PeekSchedule::restored(parsed)) schedule_ = std::move(*schedule);
    }
  }
}

void WhatsAppCapture::saveHandedOver() { defaults_->write(keys::whatsappSentMessages, sent_.saved()); }

asio::awaitable<WhatsAppCapture::End> WhatsAppCapture::capture(WhatsAppSession& session, BrainClient& client,
                                                              std::string channelId) {
  loadOnce();
  const auto now = clock_->now();
  auto baseline = defaults_->strings(keys::whatsappRowPrints).value_or(std::vector<std::string>{});
  auto cursor = defaults_->integer(keys::whatsappCaptureCursor).value_or(0);
  const bool sweeping = defaults_->integer(keys::whatsappSweepVersion).value_or(0) < 1;
  if (sweeping) QuarlLog::say("quarl: whatsapp: reading every conversation once, as agreed");

  WhatsAppWeb::CaptureInputs inputs;
  inputs.known = baseline;
  inputs.catchUp = sweeping;
  inputs.cursor = cursor;
  inputs.retriesSpent = retries_.spent();
  // The chats the list showed last pass: those out of sight cannot be read without opening, and
  // would take every slot as the longest unread. Before any pass, the baseline's stand in.
  inputs.peek = schedule_.due(listed_.empty() ? WhatsAppWeb::listedChats(baseline) : listed_, now);
  inputs.peekWatching = schedule_.watching();
  const auto result = co_await session.readNew(std::move(inputs));
  for (const auto& line : WhatsAppWeb::healthLines(result)) QuarlLog::say(line);

  if (result.ok) {
    retries_.record(result);
    // Every known chat counts as present, drawn or not: a chat forgotten would lose its record
    // of what was handed over.
    schedule_.record(result, WhatsAppWeb::listedChats(result.fingerprints), now);
    listed_ = result.listed;
    baseline = result.fingerprints;
    cursor = WhatsAppWeb::cursorAfter(cursor, result);
  }
  auto handed = co_await ingestEach(client, channelId, WhatsAppWeb::toPost(result, sent_, schedule_));
  auto inHand = WhatsAppWeb::filesNowInHand(result, sent_);
  const bool handedAny = !handed.posted.empty() || !handed.failed.empty() || !inHand.empty();
  co_await deliverOwedFiles(client, std::move(inHand));
  // Once a pass, as the Messages capture does: every save rewrites and syncs the whole settings
  // file on this executor. A pass cut short before it hands its messages over again, and the
  // service takes an id it already has without storing it twice.
  if (handedAny) saveHandedOver();

  // What did not reach the service is read again next pass, where the page can still find it.
  std::vector<Message> unsent = handed.notTried;
  for (const auto& failed : handed.failed) {
    if (!sent_.alreadySent(failed.message)) unsent.push_back(failed.message);
  }
  WhatsAppWeb::readAgain(unsent, baseline, schedule_);
  if (sweeping && WhatsAppWeb::sweepIsComplete(result) && unsent.empty()) {
    defaults_->write(keys::whatsappSweepVersion, 1);
    QuarlLog::say("quarl: whatsapp: every conversation has been read once");
  }
  if (result.ok || !unsent.empty()) {
    defaults_->writeStrings(keys::whatsappRowPrints, baseline);
    defaults_->write(keys::whatsappCaptureCursor, cursor);
  }
  defaults_->writeData(keys::whatsappPeekSchedule, json::serialize(schedule_.saved()));

  auto line = result.summary() + WhatsAppWeb::peekClauses(schedule_) + ", " + std::to_string(handed.posted.size()) +
              " handed over";
  if (!handed.failed.empty()) line += ", " + std::to_string(handed.failed.size()) + " FAILED";
  if (!handed.notTried.empty()) line += ", " + std::to_string(handed.notTried.size()) + " not tried";
  QuarlLog::say(line);
  const bool gone = std::any_of(handed.failed.begin(), handed.failed.end(), [](const IngestPass::Failure& failure) {
    return WhatsAppWeb::failureStopsTheRest(failure.error) && !WhatsAppWeb::failureIsTheChannel(failure.error);
  });
  co_return gone ? End::sessionGone : End::done;
}

asio::awaitable<IngestPass> WhatsAppCapture::ingestEach(BrainClient& client, const std::string& channelId,
                                                        std::vector<Message> post) {
  loadOnce();
  IngestPass pass;
  for (std::size_t at = 0; at < post.size(); ++at) {
    const auto& message = post[at];
    auto decisions = co_await client.ingest(ingestMessageFor(message, channelId, clock_->now()));
    if (!decisions) {
      const auto& failure = decisions.error();
      const auto code = failureCode(failure);
      if (failure.refusesThisRecordOnly()) {
        // Refused for good: offering it again would be refused again.
        QuarlLog::say("quarl: whatsapp: Quarl refused message " + message.externalId + " — " + failure.description() +
                      "; passing over it");
        sent_.record(message);
        pass.failed.push_back({message, code});
        continue;
      }
      pass.failed.push_back({message, code.empty() ? failure.description() : code});
      if (WhatsAppWeb::failureStopsTheRest(code) || failure.isSessionGone()) {
        pass.notTried.assign(post.begin() + static_cast<std::ptrdiff_t>(at) + 1, post.end());
        QuarlLog::say("quarl: whatsapp capture stopped — " + failure.description() + "; " +
                      std::to_string(pass.notTried.size() + 1) + " message(s) will be read again");
        break;
      }
      QuarlLog::say("quarl: whatsapp: message " + message.externalId + " did not reach Quarl — " +
                    failure.description() + "; it will be read again");
      continue;
    }
    const bool owed = co_await deliverFile(client, message, *decisions);
    sent_.record(message, owed);
    schedule_.handedOver(message, WhatsAppWeb::messageTag(message.externalId));
    pass.posted.push_back(message);
  }
  co_return pass;
}

asio::awaitable<bool> WhatsAppCapture::deliverFile(BrainClient& client, const Message& message,
                                                   const std::vector<AttachmentDecision>& decisions) {
  if (message.attachments.empty()) co_return false;
  const auto& file = message.attachments.front();
  const auto wanted = std::find_if(decisions.begin(), decisions.end(), [&](const AttachmentDecision& decision) {
    return decision.wantBytes && decision.id == message.externalId;
  });
  if (wanted == decisions.end()) co_return false;
  if (!file.bytes) {
    QuarlLog::say("quarl: whatsapp: Quarl wants the file of message " + message.externalId + " and it is not in hand — " +
                  file.note.value_or("the page gave no reason") + "; it is sent when a later pass reads it");
    co_return true;
  }
  const auto uploaded = co_await client.uploadInboundAttachment(message.externalId, *file.bytes);
  if (!uploaded) {
    QuarlLog::say("quarl: whatsapp: the file of message " + message.externalId + " did not upload — " +
                  uploaded.error().description() + "; it is sent when a later pass reads it");
    co_return true;
  }
  co_return false;
}

asio::awaitable<void> WhatsAppCapture::deliverOwedFiles(BrainClient& client, std::vector<Message> inHand) {
  for (const auto& message : inHand) {
    const auto uploaded = co_await client.uploadInboundAttachment(message.externalId, *message.attachments.front().bytes);
    if (!uploaded) continue;
    sent_.fileDelivered(message.externalId);
  }
}

}  // namespace quarl

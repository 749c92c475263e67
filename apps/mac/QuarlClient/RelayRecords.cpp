#include "RelayRecords.h"

#include <boost/json/value.hpp>

#include "Base64.h"
#include "DateText.h"
#include "JsonFields.h"
#include "Utf16Text.h"

namespace quarl {
namespace json = boost::json;

namespace {

constexpr std::size_t failureReasonLimit = 300;

template <class T>
T member(const json::object& object, std::string_view key) {
  return json::value_to<T>(object.at(key));
}

}  // namespace

json::object attachmentBody(const OutgoingAttachment& attachment) {
  json::object body{{"externalId", attachment.externalId},
                    {"filename", attachment.filename},
                    {"mimeType", attachment.mimeType},
                    {"sizeBytes", attachment.sizeBytes}};
  if (attachment.providerHint) body["providerHint"] = *attachment.providerHint;
  if (attachment.sensitive) body["sensitive"] = true;
  if (attachment.ephemeral) body["ephemeral"] = true;
  if (attachment.durationSeconds) body["durationSeconds"] = *attachment.durationSeconds;
  return body;
}

json::object ingestBody(const IngestMessage& message) {
  json::object body{{"channelId", message.channelId},
                    {"externalThreadId", message.externalThreadId},
                    {"externalMessageId", message.externalMessageId},
                    {"direction", message.direction},
                    {"body", message.body},
                    {"sentAt", iso8601(message.sentAt)},
                    {"threadKind", message.threadKind}};
  if (message.sentViaQuarl) body["sentViaQuarl"] = true;
  if (message.senderIdentifier) {
    body["senderIdentifier"] = *message.senderIdentifier;
    if (message.senderIdentifierKind) body["senderIdentifierKind"] = *message.senderIdentifierKind;
  }
  if (message.senderDisplayName) body["senderDisplayName"] = *message.senderDisplayName;
  if (message.threadTitle && !message.threadTitle->empty()) body["threadTitle"] = *message.threadTitle;
  if (!message.attachments.empty()) {
    json::array attachments;
    for (const auto& attachment : message.attachments) attachments.push_back(attachmentBody(attachment));
    body["attachments"] = std::move(attachments);
  }
  return body;
}

json::object jobReportBody(bool ok, const std::optional<std::string>& failureReason,
                           const std::optional<std::string>& providerMessageId) {
  json::object body{{"ok", ok}};
  if (failureReason) body["failureReason"] = fitFailureReason(*failureReason);
  if (providerMessageId) body["providerMessageId"] = *providerMessageId;
  return body;
}

std::string fitFailureReason(std::string_view reason) {
  if (graphemeCount(reason) <= failureReasonLimit) return repairedUtf8(reason);
  return graphemePrefix(reason, failureReasonLimit - 3) + "...";
}

FetchedBytes checkedBytes(const FetchedAttachment& fetched) {
  auto bytes = base64Decode(fetched.dataBase64);
  if (!bytes || bytes->empty()) return {std::nullopt, "the file arrived with no readable bytes"};
  if (static_cast<std::int64_t>(bytes->size()) != fetched.sizeBytes) {
    return {std::nullopt, "the file arrived " + std::to_string(bytes->size()) + " bytes long where " +
                              std::to_string(fetched.sizeBytes) + " were promised"};
  }
  return {FetchedFile{fetched.filename, std::move(*bytes)}, std::nullopt};
}

RelayAttachment tag_invoke(json::value_to_tag<RelayAttachment>, const json::value& value) {
  const auto& object = value.as_object();
  return {member<std::string>(object, "id"), member<std::string>(object, "filename"),
          member<std::string>(object, "mimeType"), member<std::int64_t>(object, "sizeBytes")};
}

RelayJob tag_invoke(json::value_to_tag<RelayJob>, const json::value& value) {
  const auto& object = value.as_object();
  RelayJob job;
  job.id = member<std::string>(object, "id");
  job.channelKind = member<std::string>(object, "channelKind");
  job.threadId = member<std::string>(object, "threadId");
  job.conversationRef = member<std::string>(object, "conversationRef");
  job.conversationName = optionalMember<std::string>(object, "conversationName");
  job.body = member<std::string>(object, "body");
  job.files = member<std::vector<RelayAttachment>>(object, "attachments");
  job.waitingSeconds = member<std::int64_t>(object, "waitingSeconds");
  job.attempts = member<std::int64_t>(object, "attempts");
  return job;
}

ClaimResponse tag_invoke(json::value_to_tag<ClaimResponse>, const json::value& value) {
  return {member<std::vector<RelayJob>>(value.as_object(), "jobs")};
}

FetchedAttachment tag_invoke(json::value_to_tag<FetchedAttachment>, const json::value& value) {
  const auto& object = value.as_object();
  return {member<std::string>(object, "id"), member<std::string>(object, "filename"),
          member<std::string>(object, "mimeType"), member<std::int64_t>(object, "sizeBytes"),
          member<std::string>(object, "dataBase64")};
}

AttachmentDecision tag_invoke(json::value_to_tag<AttachmentDecision>, const json::value& value) {
  const auto& object = value.as_object();
  return {optionalMember<std::string>(object, "externalId"), optionalMember<std::string>(object, "mediaClass"),
          member<bool>(object, "wantBytes"), optionalMember<std::string>(object, "reason")};
}

IngestResponse tag_invoke(json::value_to_tag<IngestResponse>, const json::value& value) {
  const auto& object = value.as_object();
  return {optionalMember<std::vector<AttachmentDecision>>(object, "attachments").value_or(std::vector<AttachmentDecision>{})};
}

}  // namespace quarl

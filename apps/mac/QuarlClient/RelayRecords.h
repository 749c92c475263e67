#pragma once

#include <boost/json/object.hpp>
#include <boost/json/value_to.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Clock.h"

namespace quarl {

// The records the channels exchange with the service: relay jobs claimed and reported, messages
// ingested with their attachments, and the service's decisions about those attachments.

struct RelayAttachment {
  std::string id;
  std::string filename;
  std::string mimeType;
  std::int64_t sizeBytes = 0;
};

// A send the service asks this Mac to make.
struct RelayJob {
  std::string id;
  std::string channelKind;  // "imessage", "sms" or "whatsapp"
  std::string threadId;
  std::string conversationRef;
  std::optional<std::string> conversationName;
  std::string body;
  std::vector<RelayAttachment> files;  // "attachments" on the wire
  std::int64_t waitingSeconds = 0;
  std::int64_t attempts = 0;
};

struct ClaimResponse {
  std::vector<RelayJob> jobs;
};

// A relay attachment's record with its bytes in standard base64.
struct FetchedAttachment {
  std::string id;
  std::string filename;
  std::string mimeType;
  std::int64_t sizeBytes = 0;
  std::string dataBase64;
};

// A relay attachment's bytes, checked against what the record promised.
struct FetchedFile {
  std::string filename;
  std::string bytes;
};

// One attachment of an ingested message.
struct OutgoingAttachment {
  std::string externalId;
  std::string filename;
  std::string mimeType;
  std::int64_t sizeBytes = 0;
  std::optional<std::string> providerHint = std::nullopt;
  bool sensitive = false;
  bool ephemeral = false;
  std::optional<std::int64_t> durationSeconds = std::nullopt;
};

// The service's answer about one ingested attachment.
struct AttachmentDecision {
  std::optional<std::string> id;  // "externalId": which attachment
  std::optional<std::string> mediaClass;
  bool wantBytes = false;
  std::optional<std::string> reason;
};

struct IngestResponse {
  std::vector<AttachmentDecision> attachments;
};

// One message handed to the service. Optional facts are left out of the body, never sent as null.
struct IngestMessage {
  std::string channelId;
  std::string externalThreadId;
  std::string externalMessageId;
  std::string direction;  // "inbound" or "outbound"
  std::string body;
  SystemTime sentAt;
  std::optional<std::string> senderIdentifier = std::nullopt;
  std::optional<std::string> senderIdentifierKind = std::nullopt;  // "phone" or "email"
  std::optional<std::string> senderDisplayName = std::nullopt;
  std::string threadKind;  // "group" or "direct"
  std::optional<std::string> threadTitle = std::nullopt;
  bool sentViaQuarl = false;
  std::vector<OutgoingAttachment> attachments = {};
};

boost::json::object ingestBody(const IngestMessage& message);
boost::json::object attachmentBody(const OutgoingAttachment& attachment);
boost::json::object jobReportBody(bool ok, const std::optional<std::string>& failureReason,
                                  const std::optional<std::string>& providerMessageId);

// A failure reason as the service takes it: at most 300 characters as a person counts them,
// a longer one cut to 297 and "...".
std::string fitFailureReason(std::string_view reason);

// The checked bytes of a relay attachment, or the detail of why they cannot be used: no
// readable bytes, or a length other than the one promised.
struct FetchedBytes {
  std::optional<FetchedFile> file;
  std::optional<std::string> problem;
};
FetchedBytes checkedBytes(const FetchedAttachment& fetched);

RelayAttachment tag_invoke(boost::json::value_to_tag<RelayAttachment>, const boost::json::value& value);
RelayJob tag_invoke(boost::json::value_to_tag<RelayJob>, const boost::json::value& value);
ClaimResponse tag_invoke(boost::json::value_to_tag<ClaimResponse>, const boost::json::value& value);
FetchedAttachment tag_invoke(boost::json::value_to_tag<FetchedAttachment>, const boost::json::value& value);
AttachmentDecision tag_invoke(boost::json::value_to_tag<AttachmentDecision>, const boost::json::value& value);
IngestResponse tag_invoke(boost::json::value_to_tag<IngestResponse>, const boost::json::value& value);

}  // namespace quarl

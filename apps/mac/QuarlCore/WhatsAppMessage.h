#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Clock.h"

namespace quarl::WhatsAppWeb {

// The facts the page gave about a file on a message. Whether to upload it is the service's
// decision; this only says what is known and, when there are no bytes, why.
struct Attachment {
  std::string type;  // WhatsApp's own message type: image, video, ptt, document…
  std::optional<std::string> mime;
  std::optional<std::int64_t> size;  // bytes, as the message model states it
  std::optional<std::string> filename;
  bool viewOnce = false;
  std::optional<std::int64_t> duration;  // seconds
  std::optional<std::string> bytes;      // the decoded file, when the page handed it over
  std::optional<std::int64_t> have;      // bytes in hand, a preview's when that is all there was
  std::optional<std::string> blobType;
  std::optional<std::string> note;  // why there are no bytes
};

// One message read from the page.
struct Message {
  std::string externalId;       // WhatsApp's message id
  std::string conversationRef;  // the conversation's JID
  bool isFromMe = false;
  std::string text;  // the words, or a file's caption
  std::optional<SystemTime> sentAt;
  std::optional<std::string> senderName;
  std::optional<std::string> conversationTitle;
  std::optional<std::string> authorRef;  // in a group, the participant who wrote it
  std::vector<Attachment> attachments;   // at most one
  std::optional<std::string> chatKey;    // the chat-list key of the conversation it came from
  bool peeked = false;                   // read from the chat model without opening the chat
};

// A row's data-id. The older form is three fields joined by underscores: "true" or "false",
// the conversation's JID and the message id (a group's rows add the author's JID); it carries
// the row's direction and conversation. Since April 2026 WhatsApp Web writes the bare message
// id, and direction and conversation come from the message model.
struct DataId {
  std::string messageId;
  std::optional<bool> fromMe;
  std::optional<std::string> conversationRef;
  std::optional<std::string> authorRef;
};
std::optional<DataId> parseDataId(std::string_view dataId);

// A row's pre-plain-text, "[10:25, 23/11/2026] Alice: ": when it was sent (local time, to the
// minute) and who wrote it. The date's order follows the owner's locale; a day and month that
// could be either are read as the reading nearest to now that is not in the future.
struct PrePlainText {
  std::optional<SystemTime> sentAt;
  std::optional<std::string> senderName;
};
PrePlainText parsePrePlainText(std::string_view text, SystemTime now);

// The file facts of one message record of the capture answer, with its bytes decoded; none for
// a message without a file. `messageId` names the message in the note of bytes that would not
// decode.
std::optional<Attachment> attachment(const boost::json::object& record, std::string_view messageId);

}  // namespace quarl::WhatsAppWeb

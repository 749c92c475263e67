#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "WhatsAppSessionState.h"

namespace quarl::WhatsAppWeb {

// Files larger than this are refused before the page is touched.
inline constexpr std::int64_t outgoingMediaCapBytes = 16777216;

// What the open script found: the conversation open in the main pane, or why it is not, with
// how the chat list was searched.
struct OpenOutcome {
  struct Search {
    bool tried = false;  // a name was given and the list did not hold the chat
    bool box = false;    // the search box was found and typed into
    std::int64_t rows = 0;
  };
  // How many rows' chat ids were found each way, in the page's own order of trying.
  struct How {
    std::int64_t chat = 0, key = 0, prop = 0, cell = 0, descendant = 0, none = 0;
    std::string summary() const;
  };

  bool readable = false;  // the answer could be read at all
  bool ok = false;
  std::optional<std::string> openedRef;
  bool alreadyOpen = false;
  bool viaSearch = false;
  std::optional<std::string> reason;  // no_chat_list, not_in_list, no_press_target, opened_the_wrong_chat
  std::int64_t rows = 0;
  std::int64_t walked = 0;  // distinct conversations seen while scrolling
  std::int64_t pages = 0;
  std::int64_t grew = 0;
  bool sameNumber = false;  // a conversation seen has the wanted number under another id
  How how;
  std::vector<std::string> propKeys;
  bool anyFiber = false;
  Search searched;
};

OpenOutcome readOpenOutcome(std::string_view answer);

// Why nothing was sent, for an open that failed or could not be read.
std::string openFailureSentence(const OpenOutcome& outcome);
std::string openFailureSentence(std::string_view reason, std::int64_t walked, bool sameNumber, bool anyFiber,
                                const OpenOutcome::Search& searched);

// Whether a reply went; when it did not, the owner's sentence for why. A reply that went
// without a file WhatsApp cannot take carries the sentence for that file as its note.
struct SendOutcome {
  bool sent = false;
  std::optional<std::string> failure;
  std::optional<std::string> note;

  static SendOutcome went() { return SendOutcome{true, std::nullopt, std::nullopt}; }
  static SendOutcome notSent(std::string why) { return SendOutcome{false, std::move(why), std::nullopt}; }
};

// The send script's answer: a send is never assumed, so anything but {ok: true} is a failure.
SendOutcome readSendOutcome(const std::optional<std::string>& answer);

// Where a file's send stopped.
enum class MediaSendStage { decode, attachMenu, fileInput, notAccepted, dataTransfer, preview, confirm, sent };
std::optional<MediaSendStage> mediaSendStageNamed(std::string_view name);

struct MediaSendOutcome {
  bool ok = false;
  std::optional<MediaSendStage> stage;  // none when the answer could not be read
  std::optional<std::string> reason;
};

MediaSendOutcome readMediaSendOutcome(const std::optional<std::string>& answer);

// A file to send: its name, type and bytes.
struct OutgoingFile {
  std::string name;
  std::string type;
  std::string bytes;

  // The media send script's arguments: fileName, fileType, fileB64, and whether the picture
  // was already pasted natively.
  boost::json::object arguments(bool pasted = false) const;
  // A picture the pasteboard can carry.
  bool isPicture() const;
};

// The sentence for file `index` (from 1) of `of` failing: what went before it, and that the
// message did not.
std::string mediaFailureSentence(int index, int of, const std::optional<std::string>& reason);

// Why a file cannot go into WhatsApp at all; none when it can.
std::optional<std::string> outgoingMediaRefusal(std::int64_t sizeBytes, std::string_view mimeType);

// The sentence for a reply whose `filesSent` files went and whose text did not.
std::string filesWentTextDidNot(int filesSent, std::string_view textFailure);

// A one-to-one chat id (at "c.us" or "s.whatsapp.net") as WhatsApp Web's link that opens the
// chat by number, under `root`; none for groups and other ids.
std::optional<std::string> conversationURL(std::string_view conversationRef, std::string_view root = url);
// The phone number ("+" and its digits) of a one-to-one chat id; none for groups and other ids.
std::optional<std::string> senderPhone(std::string_view conversationRef);

// The scripts, with their values spliced in; each runs as the body of an asynchronous function.
std::string openConversationScript(std::string_view conversationRef, const std::optional<std::string>& name);
std::string sendScript(std::string_view conversationRef, std::string_view body);
std::string mediaSendScript();

inline constexpr std::string_view notLinkedSentence =
    "WhatsApp Web is not linked on this Mac. Open Quarl and scan the code.";
std::string sendNotRunSentence(std::string_view failure);

}  // namespace quarl::WhatsAppWeb

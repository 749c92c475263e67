#include "WhatsAppSend.h"

#include <boost/json/parse.hpp>
#include <cmath>
#include <cstdio>

#include "Base64.h"
#include "WhatsAppAnswerFields.h"
#include "WhatsAppScriptText.h"
#include "WhatsAppScripts.h"

namespace quarl::WhatsAppWeb {
namespace json = boost::json;

namespace {

std::optional<json::object> objectOf(std::string_view answer) {
  boost::system::error_code error;
  auto value = json::parse(answer, error);
  if (error || !value.is_object()) return std::nullopt;
  return std::move(value.as_object());
}

const json::object* nestedObject(const json::object& object, std::string_view key) {
  const auto* value = object.if_contains(key);
  return value && value->is_object() ? &value->as_object() : nullptr;
}

// The one-to-one chat id's number, without its device suffix; none for any other id.
std::optional<std::string> oneToOneDigits(std::string_view ref) {
  const auto at = ref.find('@');
  if (at == std::string_view::npos) return std::nullopt;
  const auto domain = ref.substr(at + 1);
  if (domain != "c.us" && domain != "s.whatsapp.net") return std::nullopt;
  auto user = ref.substr(0, at);
  user = user.substr(0, user.find(':'));
  if (user.empty() || user.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
  return std::string(user);
}

// Megabytes as a person reads them: "17", "16.5".
std::string megabytes(std::int64_t bytes) {
  const double tenths = std::round(static_cast<double>(bytes) / 1048576.0 * 10.0);
  char text[32];
  if (std::fmod(tenths, 10.0) == 0.0) {
    std::snprintf(text, sizeof text, "%.0f", tenths / 10.0);
  } else {
    std::snprintf(text, sizeof text, "%.1f", tenths / 10.0);
  }
  return text;
}

constexpr std::string_view unconfirmedOpen =
    "Quarl could not confirm that the right WhatsApp conversation was open, so it sent nothing. Open the conversation "
    "in WhatsApp and try again.";

}  // namespace

std::string OpenOutcome::How::summary() const {
  return "chat " + std::to_string(chat) + ", key " + std::to_string(key) + ", prop " + std::to_string(prop) + ", cell " +
         std::to_string(cell) + ", descendant " + std::to_string(descendant) + ", none " + std::to_string(none);
}

OpenOutcome readOpenOutcome(std::string_view answer) {
  OpenOutcome outcome;
  const auto object = objectOf(answer);
  if (!object) return outcome;
  const auto ok = boolOf(*object, "ok");
  if (!ok) return outcome;
  outcome.readable = true;
  outcome.ok = *ok;
  outcome.openedRef = stringOf(*object, "openedRef");
  outcome.alreadyOpen = boolOf(*object, "alreadyOpen").value_or(false);
  outcome.viaSearch = boolOf(*object, "viaSearch").value_or(false);
  outcome.reason = stringOf(*object, "reason");
  outcome.rows = wholeOf(*object, "rows").value_or(0);
  outcome.walked = wholeOf(*object, "walked").value_or(0);
  outcome.pages = wholeOf(*object, "pages").value_or(0);
  outcome.grew = wholeOf(*object, "grew").value_or(0);
  outcome.sameNumber = boolOf(*object, "sameNumber").value_or(false);
  outcome.anyFiber = boolOf(*object, "anyFiber").value_or(false);
  if (const auto* how = nestedObject(*object, "how")) {
    outcome.how = {wholeOf(*how, "chat").value_or(0), wholeOf(*how, "key").value_or(0),
                   wholeOf(*how, "prop").value_or(0), wholeOf(*how, "cell").value_or(0),
                   wholeOf(*how, "descendant").value_or(0), wholeOf(*how, "none").value_or(0)};
  }
  if (const auto* keys = object->if_contains("propKeys"); keys && keys->is_array()) {
    for (const auto& key : keys->as_array()) {
      if (key.is_string()) outcome.propKeys.emplace_back(key.as_string());
    }
  }
  if (const auto* searched = nestedObject(*object, "searched")) {
    outcome.searched = {boolOf(*searched, "tried").value_or(false), boolOf(*searched, "box").value_or(false),
                        wholeOf(*searched, "rows").value_or(0)};
  }
  // An open is believed only when the page says which conversation it opened.
  if (outcome.ok && !outcome.openedRef) outcome.readable = false;
  return outcome;
}

std::string openFailureSentence(const OpenOutcome& outcome) {
  if (!outcome.readable) return std::string(unconfirmedOpen);
  return openFailureSentence(outcome.reason.value_or(""), outcome.walked, outcome.sameNumber, outcome.anyFiber,
                             outcome.searched);
}

std::string openFailureSentence(std::string_view reason, std::int64_t walked, bool sameNumber, bool anyFiber,
                                const OpenOutcome::Search& searched) {
  if (reason == "no_chat_list") {
    return "Quarl could not read the WhatsApp chat list on this Mac, so it sent nothing. Check WhatsApp is still "
           "linked in Settings.";
  }
  if (reason == "opened_the_wrong_chat") {
    return "Quarl opened the wrong WhatsApp conversation and stopped rather than send your reply to the wrong people. "
           "Nothing was sent. Try again.";
  }
  if (reason != "not_in_list") {
    return "Quarl could not open that WhatsApp conversation on this Mac, so it sent nothing. Open it in WhatsApp and "
           "try again.";
  }
  if (sameNumber) {
    return "Quarl found that conversation on this Mac but WhatsApp has given it a new internal id, so it did not send. "
           "Open it once in WhatsApp and try again — Quarl then sends to it under its new id.";
  }
  if (walked == 0 && anyFiber) {
    return "Quarl could not tell which conversation any row in the chat list belongs to, so it sent nothing rather "
           "than risk the wrong one. This needs a Quarl update, not anything from you.";
  }
  if (walked == 0) {
    return "Quarl could not read WhatsApp Web's chat list on this Mac — the page has changed in a way this build does "
           "not understand, so it sent nothing rather than risk the wrong conversation. This needs a Quarl update, not "
           "anything from you.";
  }
  std::string sentence =
      "That WhatsApp conversation is not in the chat list on this Mac, so Quarl sent nothing. Open it once in WhatsApp "
      "and try again.";
  if (searched.tried && !searched.box) {
    sentence += " (Quarl looked through " + std::to_string(walked) +
                " conversations and could not find WhatsApp's search box to search by name.)";
  } else if (searched.tried) {
    sentence += " (Quarl looked through " + std::to_string(walked) + " conversations and searched by name: " +
                std::to_string(searched.rows) + " result(s), none of them this conversation.)";
  }
  return sentence;
}

SendOutcome readSendOutcome(const std::optional<std::string>& answer) {
  const auto object = answer ? objectOf(*answer) : std::nullopt;
  const auto ok = object ? boolOf(*object, "ok") : std::nullopt;
  if (!ok) return SendOutcome::notSent("Quarl could not tell whether WhatsApp Web sent that. Nothing is assumed.");
  if (*ok) return SendOutcome::went();
  return SendOutcome::notSent(stringOf(*object, "reason").value_or("WhatsApp Web did not say why."));
}

std::optional<MediaSendStage> mediaSendStageNamed(std::string_view name) {
  static constexpr std::pair<std::string_view, MediaSendStage> stages[] = {
      {"decode", MediaSendStage::decode},         {"attachMenu", MediaSendStage::attachMenu},
      {"fileInput", MediaSendStage::fileInput},   {"notAccepted", MediaSendStage::notAccepted},
      {"dataTransfer", MediaSendStage::dataTransfer}, {"preview", MediaSendStage::preview},
      {"confirm", MediaSendStage::confirm},       {"sent", MediaSendStage::sent}};
  for (const auto& [stageName, stage] : stages) {
    if (stageName == name) return stage;
  }
  return std::nullopt;
}

MediaSendOutcome readMediaSendOutcome(const std::optional<std::string>& answer) {
  MediaSendOutcome outcome;
  const auto object = answer ? objectOf(*answer) : std::nullopt;
  if (!object) return outcome;
  const auto stage = stringOf(*object, "stage");
  outcome.stage = stage ? mediaSendStageNamed(*stage) : std::nullopt;
  // A file is sent only when the page says both that it went and that it got past its last stage.
  outcome.ok = boolOf(*object, "ok").value_or(false) && outcome.stage == MediaSendStage::sent;
  outcome.reason = stringOf(*object, "reason");
  return outcome;
}

json::object OutgoingFile::arguments(bool pasted) const {
  return json::object{{"fileName", name}, {"fileType", type}, {"fileB64", base64Encode(bytes)}, {"pasted", pasted}};
}

bool OutgoingFile::isPicture() const {
  return type == "image/png" || type == "image/jpeg" || type == "image/gif" || type == "image/heic" ||
         type == "image/tiff" || type == "image/webp";
}

std::string mediaFailureSentence(int index, int of, const std::optional<std::string>& reason) {
  std::string sentence = reason && !reason->empty() ? *reason : "WhatsApp Web did not say why.";
  if (of <= 1) return sentence;
  if (index <= 1) return sentence + " Nothing was sent — this was the first of " + std::to_string(of) + " files.";
  return sentence + " File " + std::to_string(index) + " of " + std::to_string(of) +
         " did not go: those before it were sent, and the message itself was not.";
}

std::optional<std::string> outgoingMediaRefusal(std::int64_t sizeBytes, std::string_view mimeType) {
  if (sizeBytes <= outgoingMediaCapBytes) return std::nullopt;
  return "Quarl cannot put a " + megabytes(sizeBytes) + " MB " + std::string(mimeType) +
         " into WhatsApp from this Mac — the limit is " + megabytes(outgoingMediaCapBytes) +
         " MB, so send that file in WhatsApp yourself; anything else in this reply went without the file.";
}

std::string filesWentTextDidNot(int filesSent, std::string_view textFailure) {
  const std::string files = filesSent == 1 ? "The file had" : "The " + std::to_string(filesSent) + " files had";
  return std::string(textFailure) + " " + files + " already been sent; only the message itself did not go.";
}

std::optional<std::string> conversationURL(std::string_view conversationRef, std::string_view root) {
  const auto digits = oneToOneDigits(conversationRef);
  if (!digits) return std::nullopt;
  std::string link(root);
  if (!link.ends_with('/')) link += '/';
  return link + "send?phone=" + *digits;
}

std::optional<std::string> senderPhone(std::string_view conversationRef) {
  const auto digits = oneToOneDigits(conversationRef);
  if (!digits) return std::nullopt;
  return "+" + *digits;
}

std::string openConversationScript(std::string_view conversationRef, const std::optional<std::string>& name) {
  const std::string wantName = name && !name->empty() ? "'" + escapeJS(*name) + "'" : "null";
  return std::string(pageHelpersScript()) + "\nconst want = '" + escapeJS(conversationRef) +
         "';\nconst wantName = " + wantName + ";\n" + std::string(openConversationBody());
}

std::string sendScript(std::string_view conversationRef, std::string_view body) {
  return std::string(pageHelpersScript()) + "\nconst want = '" + escapeJS(conversationRef) + "';\nconst body = '" +
         escapeJS(body) + "';\n" + std::string(sendTextBody());
}

std::string mediaSendScript() { return std::string(pageHelpersScript()) + "\n" + std::string(sendMediaBody()); }

std::string sendNotRunSentence(std::string_view failure) {
  return "Quarl could not run the WhatsApp send: " + std::string(failure);
}

}  // namespace quarl::WhatsAppWeb

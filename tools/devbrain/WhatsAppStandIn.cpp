#include "WhatsAppStandIn.h"

#include "DevBrain.h"
#include "Base64.h"
#include "RandomText.h"
#include "Sha256.h"
#include "WhatsAppStandInPage.h"

namespace devbrain {
namespace json = boost::json;
using namespace std::chrono;

namespace {

constexpr auto syncingFor = milliseconds(1500);
constexpr std::string_view sessionCookie = "wa_session=";

Answer text(int status, std::string body, std::string contentType) {
  Answer answer;
  answer.status = status;
  answer.body = std::move(body);
  answer.contentType = std::move(contentType);
  return answer;
}

std::string presentedSession(const std::string& cookies) {
  const auto at = cookies.find(sessionCookie);
  if (at == std::string::npos) return "";
  const auto start = at + sessionCookie.size();
  return cookies.substr(start, cookies.find(';', start) - start);
}

bool isScreen(std::string_view screen) {
  return screen == "link" || screen == "loading" || screen == "syncing" || screen == "linked" || screen == "evicted" ||
         screen == "broken";
}

}  // namespace

WhatsAppStandIn::WhatsAppStandIn() : ref_("2@" + quarl::randomHex(24)) {}

void WhatsAppStandIn::syncThenLink() {
  screen_ = "syncing";
  linkAt_ = steady_clock::now() + syncingFor;
  changed();
}

void WhatsAppStandIn::settle() {
  if (linkAt_ && steady_clock::now() >= *linkAt_) {
    linkAt_.reset();
    screen_ = "linked";
    changed();
  }
}

json::object& WhatsAppStandIn::chat(const std::string& id) {
  for (auto& existing : chats_) {
    if (existing.as_object().at("id").as_string() == id) return existing.as_object();
  }
  chats_.push_back(json::object{{"id", id}, {"title", id}, {"unread", 0}, {"messages", json::array{}}});
  return chats_.back().as_object();
}

std::optional<Answer> WhatsAppStandIn::route(const std::string& method, const std::string& path,
                                             const std::string& cookies, const json::object& body) {
  if (!path.starts_with("/whatsapp/")) return std::nullopt;
  settle();
  const auto rest = path.substr(std::string_view("/whatsapp/").size());
  // The page, also as the link that opens a chat by number: the page reads the number itself.
  if (method == "GET" && (rest.empty() || rest == "send")) return page(cookies);
  if (method == "GET" && rest == "standin.js") return text(200, std::string(standInScript()), "text/javascript");
  if (method == "GET" && rest == "state") {
    json::object state{{"version", version_}, {"screen", screen_}, {"markup", markup_}, {"chats", chats_}};
    if (screen_ == "link") state["ref"] = ref_;
    for (const auto& [key, value] : tuning_) state[key] = value;
    return jsonAnswer(200, state);
  }
  if (method == "POST" && rest == "events") return event(body);
  // What a page may offer to save: a plain file, with no page to show.
  if (method == "GET" && rest == "download") {
    auto answer = text(200, "not for the companion", "application/octet-stream");
    answer.headers.emplace_back("Content-Disposition", "attachment; filename=\"file.bin\"");
    return answer;
  }
  return text(404, "<p>Not found</p>", "text/html");
}

Answer WhatsAppStandIn::page(const std::string& cookies) {
  const auto session = presentedSession(cookies);
  sessionsSeen_.push_back(json::string(session));
  auto answer = text(200, std::string(standInPage()), "text/html; charset=utf-8");
  if (session.empty()) {
    answer.headers.emplace_back("Set-Cookie", std::string(sessionCookie) + quarl::randomHex(16) +
                                                  "; Path=/; Max-Age=31536000; HttpOnly; SameSite=Lax");
  }
  return answer;
}

Answer WhatsAppStandIn::event(const json::object& body) {
  if (const auto* opened = body.if_contains("opened"); opened && opened->is_string()) {
    opened_.push_back(*opened);
    chat(std::string(opened->as_string()))["unread"] = 0;
    changed();
  } else if (body.contains("reclaimed")) {
    ++reclaimed_;
    syncThenLink();
  } else if (const auto* sent = body.if_contains("sent"); sent && sent->is_object()) {
    const auto& send = sent->as_object();
    sent_.push_back(send);
    auto& messages = chat(std::string(send.at("chat").as_string()))["messages"].as_array();
    const auto now = duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
    messages.push_back(json::object{{"id", "3EB0" + quarl::randomHex(8)}, {"fromMe", true}, {"t", now},
                                    {"type", "chat"}, {"body", send.at("text")}});
    changed();
  } else if (const auto* media = body.if_contains("sentMedia"); media && media->is_object()) {
    sentMedia(media->as_object());
  } else if (const auto* fresh = body.if_contains("newChat"); fresh && fresh->is_object() && fresh->as_object().contains("id")) {
    auto& made = chat(std::string(fresh->as_object().at("id").as_string()));
    if (const auto* title = fresh->as_object().if_contains("title")) made["title"] = *title;
    changed();
  } else {
    return problem(400, "bad_event", "an event is {opened}, {reclaimed}, {sent}, {sentMedia} or {newChat}");
  }
  return jsonAnswer(200, json::object{{"ok", true}});
}

// A file the page sent: kept in the sent log by its digest, and drawn in its chat as the owner's.
void WhatsAppStandIn::sentMedia(const json::object& media) {
  const auto bytes = quarl::base64Decode(media.at("b64").as_string()).value_or("");
  const std::string type(media.at("type").as_string());
  json::object record{{"chat", media.at("chat")}, {"file", media.at("name")}, {"type", type},
                      {"size", bytes.size()}, {"sha256", quarl::sha256Hex(bytes)}};
  sent_.push_back(record);
  auto& messages = chat(std::string(media.at("chat").as_string()))["messages"].as_array();
  const auto now = duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
  json::object message{{"id", "3EB0" + quarl::randomHex(8)}, {"fromMe", true}, {"t", now}, {"mimetype", type},
                       {"filename", media.at("name")}, {"size", bytes.size()}};
  const bool picture = type.starts_with("image/") || type.starts_with("video/");
  message["type"] = picture ? (type.starts_with("video/") ? "video" : "image") : "document";
  if (picture) message["blob"] = media.at("b64");
  messages.push_back(std::move(message));
  changed();
}

std::optional<Answer> WhatsAppStandIn::admin(const std::string& method, const std::string& path,
                                             const json::object& body) {
  if (!path.starts_with("/admin/whatsapp")) return std::nullopt;
  settle();
  if (path == "/admin/whatsapp" && method == "GET") {
    return jsonAnswer(200, json::object{{"screen", screen_}, {"markup", markup_}, {"ref", ref_}, {"rotations", rotations_},
                                        {"opened", opened_}, {"sent", sent_}, {"sessions", sessionsSeen_},
                                        {"reclaimed", reclaimed_}, {"chats", chats_}});
  }
  if (method != "POST") return problem(405, "method", "admin calls that change the stand-in are POSTs");
  if (path == "/admin/whatsapp/screen") {
    if (const auto* screen = body.if_contains("screen")) {
      if (!screen->is_string() || !isScreen(screen->as_string())) {
        return problem(400, "bad_screen", "screen is link, loading, syncing, linked, evicted or broken");
      }
      screen_ = std::string(screen->as_string());
      linkAt_.reset();
    }
    if (const auto* markup = body.if_contains("markup")) {
      if (!markup->is_string() || (markup->as_string() != "2023" && markup->as_string() != "2025" &&
                                   markup->as_string() != "2026")) {
        return problem(400, "bad_markup", "markup is 2023, 2025 or 2026");
      }
      markup_ = std::string(markup->as_string());
    }
    for (const auto* key : {"visibleRows", "rowsPerFrame", "frameMs", "sendIgnored", "sendBreaksJson", "attach", "accept",
                            "preview"}) {
      if (const auto* value = body.if_contains(key)) tuning_[key] = *value;
    }
    changed();
    return jsonAnswer(200, json::object{{"screen", screen_}, {"markup", markup_}});
  }
  if (path == "/admin/whatsapp/link") {
    if (screen_ != "link") return problem(409, "not_linking", "the stand-in is not showing its link screen");
    syncThenLink();
    return jsonAnswer(200, json::object{{"screen", screen_}});
  }
  if (path == "/admin/whatsapp/rotate") {
    ref_ = "2@" + quarl::randomHex(24);
    ++rotations_;
    changed();
    return jsonAnswer(200, json::object{{"ref", ref_}});
  }
  if (path == "/admin/whatsapp/chats") {
    const auto* chats = body.if_contains("chats");
    if (!chats || !chats->is_array()) return problem(400, "bad_chats", "chats is a list of {id, title, messages}");
    // A fresh account: these chats only, none opened and nothing sent yet.
    if (const auto* replace = body.if_contains("replace"); replace && *replace == json::value(true)) {
      chats_.clear();
      opened_.clear();
      sent_.clear();
    }
    for (const auto& given : chats->as_array()) {
      if (!given.is_object() || !given.as_object().contains("id")) return problem(400, "bad_chat", "a chat needs an id");
      auto& into = chat(std::string(given.as_object().at("id").as_string()));
      for (const auto& [key, value] : given.as_object()) into[key] = value;
    }
    changed();
    return jsonAnswer(200, json::object{{"chats", chats_.size()}});
  }
  if (path == "/admin/whatsapp/messages") {
    const auto* id = body.if_contains("chat");
    const auto* messages = body.if_contains("messages");
    if (!id || !id->is_string() || !messages || !messages->is_array()) {
      return problem(400, "bad_messages", "messages are {chat, messages, modelOnly?}");
    }
    auto& into = chat(std::string(id->as_string()));
    const bool modelOnly = body.contains("modelOnly") && body.at("modelOnly").as_bool();
    auto& list = into[modelOnly ? "modelOnly" : "messages"];
    if (!list.is_array()) list = json::array{};
    for (const auto& message : messages->as_array()) list.as_array().push_back(message);
    if (const auto* unread = body.if_contains("unread")) into["unread"] = *unread;
    changed();
    return jsonAnswer(200, json::object{{"messages", list.as_array().size()}});
  }
  if (path == "/admin/whatsapp/decrypt") {
    const auto* id = body.if_contains("id");
    for (auto& each : chats_) {
      for (const char* list : {"messages", "modelOnly"}) {
        auto* messages = each.as_object().if_contains(list);
        if (!messages || !id) continue;
        for (auto& message : messages->as_array()) {
          if (message.as_object().at("id") != *id) continue;
          message.as_object()["type"] = "chat";
          message.as_object()["body"] = body.contains("body") ? body.at("body") : json::value("");
          changed();
          return jsonAnswer(200, json::object{{"decrypted", *id}});
        }
      }
    }
    return problem(404, "no_message", "no message has that id");
  }
  return problem(404, "not_found", "no such admin call");
}

}  // namespace devbrain

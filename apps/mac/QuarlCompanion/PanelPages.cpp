#include "PanelPages.h"

namespace quarl {

namespace {

std::string page(const std::string& body) {
  return "<!doctype html><html><head><meta charset=\"utf-8\"><meta name=\"color-scheme\" content=\"light dark\">"
         "<style>body{font:15px -apple-system,sans-serif;margin:48px;max-width:520px}"
         "button{font-size:15px;padding:6px 18px}.code{font:600 28px ui-monospace,monospace;letter-spacing:2px}"
         "</style></head><body>" +
         body + "</body></html>";
}

}  // namespace

std::string PanelPages::escaped(std::string_view text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string PanelPages::signIn(const std::optional<std::string>& reason, const std::optional<std::string>& pairingCode) {
  std::string body = "<h1>Sign in to Quarl</h1>";
  if (reason) body += "<p>" + escaped(*reason) + "</p>";
  if (pairingCode) {
    body += "<p>Approve this code in the browser window that opened:</p><p class=\"code\">" + escaped(*pairingCode) +
            "</p>";
  } else {
    body += "<p><button onclick=\"window.webkit.messageHandlers." + std::string(handlerName) + ".postMessage('" +
            std::string(signInMessage) + "')\">Sign in</button></p>";
  }
  return page(body);
}

std::string PanelPages::notice(const std::optional<std::string>& heading, const std::string& text) {
  std::string body;
  if (heading) body += "<h1>" + escaped(*heading) + "</h1>";
  body += "<p>" + escaped(text) + "</p>";
  return page(body);
}

}  // namespace quarl

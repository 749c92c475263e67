#include "OperatorStepOutcome.h"

#include <algorithm>

#include "OperatorStepRequest.h"
#include "Utf16Text.h"

namespace quarl {
namespace json = boost::json;

namespace {

constexpr std::size_t appTextMax = 200;
constexpr std::size_t windowsMax = 40;
constexpr std::size_t windowTitleMax = 300;

template <class... Handlers>
struct Overloaded : Handlers... {
  using Handlers::operator()...;
};
template <class... Handlers>
Overloaded(Handlers...) -> Overloaded<Handlers...>;

json::object appWire(const RunningApp& app) {
  json::array windows;
  for (std::size_t i = 0; i < std::min(app.windows.size(), windowsMax); ++i) {
    windows.push_back(json::object{{"title", utf16Prefix(app.windows[i], windowTitleMax)}});
  }
  json::object object{{"name", utf16Prefix(app.name, appTextMax)},
                      {"frontmost", app.frontmost},
                      {"hidden", app.hidden},
                      {"windows", std::move(windows)}};
  if (app.bundleId) object["bundleId"] = utf16Prefix(*app.bundleId, appTextMax);
  return object;
}

// `text` cut to `max` units, and whether it was cut or came cut already.
std::pair<std::string, bool> cut(const std::string& text, std::size_t max, bool alreadyCut) {
  if (utf16Length(text) <= max) return {repairedUtf8(text), alreadyCut};
  return {utf16Prefix(text, max), true};
}

json::object done(json::object result) { return json::object{{"outcome", "done"}, {"result", std::move(result)}}; }

}  // namespace

std::string OperatorStepOutcome::fit(std::string_view sentence) {
  if (sentence.empty()) return "It did not work.";
  if (utf16Length(sentence) <= sentenceMax) return repairedUtf8(sentence);
  return utf16Prefix(sentence, sentenceMax - 3) + "...";
}

json::object OperatorStepOutcome::wire() const {
  return std::visit(
      Overloaded{
          [](const Apps& o) {
            json::array apps;
            for (const auto& app : o.apps) apps.push_back(appWire(app));
            return done(json::object{{"kind", "list_apps"}, {"apps", std::move(apps)}});
          },
          [](const Look& o) {
            json::object result{{"kind", "look"},
                                {"thumbnailJpegBase64", o.thumbnailJpegBase64},
                                {"width", o.width},
                                {"height", o.height}};
            if (o.screen) {
              result["screenJpegBase64"] = o.screen->jpegBase64;
              result["screenWidth"] = o.screen->width;
              result["screenHeight"] = o.screen->height;
            }
            return done(std::move(result));
          },
          [](const ScreenText& o) {
            auto [text, truncated] = cut(o.text, screenTextMax, o.truncated);
            json::object result{{"kind", "read_screen_text"},
                                {"app", utf16Prefix(o.app, appTextMax)},
                                {"text", std::move(text)},
                                {"truncated", truncated}};
            if (o.elements) result["elements"] = *o.elements;
            return done(std::move(result));
          },
          [](const FileList& o) {
            return done(json::object{{"kind", "list_files"}, {"files", o.files}, {"truncated", o.truncated}});
          },
          [](const FileText& o) {
            auto [text, truncated] = cut(o.text, fileTextMax, o.truncated);
            json::object result{{"kind", "read_file"}, {"text", std::move(text)}, {"truncated", truncated}};
            if (o.pages) result["pages"] = *o.pages;
            if (o.pagesRead) result["pagesRead"] = *o.pagesRead;
            return done(std::move(result));
          },
          [](const SentFile& o) {
            return done(json::object{{"kind", "send_file"}, {"bytes", o.bytes}, {"sha256", o.sha256}});
          },
          [](const Acted& o) { return done(json::object{{"kind", o.kind}, {"after", o.after}}); },
          [](const NeedsPress& o) {
            json::object object{{"outcome", "needs_press"}, {"sentence", fit(o.sentence)}};
            if (o.asks) object["asks"] = *o.asks;
            return object;
          },
          [](const Refused& o) { return json::object{{"outcome", "refused"}, {"reason", fit(o.sentence)}}; },
          [](const Failed& o) { return json::object{{"outcome", "failed"}, {"reason", fit(o.sentence)}}; },
      },
      value);
}

std::string OperatorStepOutcome::code() const {
  return std::visit(Overloaded{
                        [](const Apps&) { return std::string("done.list_apps"); },
                        [](const Look&) { return std::string("done.look"); },
                        [](const ScreenText&) { return std::string("done.read_screen_text"); },
                        [](const FileList&) { return std::string("done.list_files"); },
                        [](const FileText&) { return std::string("done.read_file"); },
                        [](const SentFile&) { return std::string("done.send_file"); },
                        [](const Acted& o) {
                          const auto& kinds = OperatorStepRequest::protocolTwoKinds;
                          const bool named = std::find(std::begin(kinds), std::end(kinds), o.kind) != std::end(kinds);
                          return "done." + (named ? o.kind : std::string("act"));
                        },
                        [](const NeedsPress&) { return std::string("needs_press"); },
                        [](const Refused&) { return std::string("refused"); },
                        [](const Failed&) { return std::string("failed"); },
                    },
                    value);
}

}  // namespace quarl

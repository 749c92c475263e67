#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace quarl {

// One running application, as a list of running apps tells it.
struct RunningApp {
  std::string name;
  std::optional<std::string> bundleId;
  bool frontmost = false;
  bool hidden = false;
  std::vector<std::string> windows;  // window titles
  std::optional<std::int64_t> processId;  // kept on the Mac, never sent
};

// What a step came to, and its form on the wire. Texts are cut to their limits here, and
// every cut is told with "truncated".
struct OperatorStepOutcome {
  struct Apps {
    std::vector<RunningApp> apps;
  };
  struct Look {
    std::string thumbnailJpegBase64;
    std::int64_t width = 0;
    std::int64_t height = 0;
    struct Screen {
      std::string jpegBase64;
      std::int64_t width = 0;
      std::int64_t height = 0;
    };
    std::optional<Screen> screen;
  };
  struct ScreenText {
    std::string app;
    std::string text;
    bool truncated = false;
    std::optional<boost::json::array> elements;
  };
  struct FileList {
    boost::json::array files;
    bool truncated = false;
  };
  struct FileText {
    std::string text;
    bool truncated = false;
    std::optional<std::int64_t> pages;
    std::optional<std::int64_t> pagesRead;
  };
  struct SentFile {
    std::int64_t bytes = 0;
    std::string sha256;
  };
  struct Acted {
    std::string kind;  // the request's kind
    boost::json::object after;
  };
  struct NeedsPress {
    std::string sentence;
    std::optional<std::string> asks;  // "app" or "folder"
  };
  struct Refused {
    std::string sentence;
  };
  struct Failed {
    std::string sentence;
  };

  std::variant<Apps, Look, ScreenText, FileList, FileText, SentFile, Acted, NeedsPress, Refused, Failed> value;

  static constexpr std::size_t sentenceMax = 300;
  static constexpr std::size_t screenTextMax = 6000;
  static constexpr std::size_t fileTextMax = 24000;

  static OperatorStepOutcome refused(std::string_view sentence) { return {Refused{std::string(sentence)}}; }
  static OperatorStepOutcome failed(std::string_view sentence) { return {Failed{std::string(sentence)}}; }

  boost::json::object wire() const;
  // "done.look", "done.type_text", "done.act", "needs_press", "refused", "failed", ...
  std::string code() const;
  // An empty sentence becomes "It did not work."; one of more than 300 UTF-16 units is cut to
  // 297 and "...".
  static std::string fit(std::string_view sentence);
};

}  // namespace quarl

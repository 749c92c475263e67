#pragma once

#include <boost/json/object.hpp>
#include <optional>
#include <string>

#include "ChatDatabaseFailure.h"
#include "Clock.h"

namespace quarl {

// What the last Messages capture pass saw, for the menu and the heartbeat's "capture" object.
struct ChatDatabaseCaptureReport {
  enum class Kind {
    ok,
    permissionDenied,
    notFound,
    schemaChanged,
    query,
    ingestRefused,
    brainUnreachable,
    unexpectedAnswer,
    other,
  };

  Kind kind = Kind::ok;
  SystemTime at;
  std::optional<SystemTime> since;  // the start of the window read
  int read = 0;
  int ingested = 0;
  int skippedWithoutText = 0;
  int droppedSms = 0;
  int alreadySent = 0;  // the companion's own sends, recognised
  int failed = 0;
  std::optional<std::string> attachmentsUnavailable;

  static Kind kindOf(const ChatDatabaseFailure& failure);
  // The sentence for the menu; none when the pass went well.
  std::optional<std::string> sentence() const;
  // {"at", "ok", "kind", "sentence"?, "since"?, "read", "ingested", "skippedWithoutText",
  //  "droppedSms", "alreadySent", "failed", "attachmentsUnavailable"?}
  boost::json::object wire() const;
};

}  // namespace quarl

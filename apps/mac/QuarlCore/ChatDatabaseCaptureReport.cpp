#include "ChatDatabaseCaptureReport.h"

#include "DateText.h"

namespace quarl {

namespace {

const char* kindName(ChatDatabaseCaptureReport::Kind kind) {
  using Kind = ChatDatabaseCaptureReport::Kind;
  switch (kind) {
    case Kind::ok: return "ok";
    case Kind::permissionDenied: return "permissionDenied";
    case Kind::notFound: return "notFound";
    case Kind::schemaChanged: return "schemaChanged";
    case Kind::query: return "query";
    case Kind::ingestRefused: return "ingestRefused";
    case Kind::brainUnreachable: return "brainUnreachable";
    case Kind::unexpectedAnswer: return "unexpectedAnswer";
    case Kind::other: return "other";
  }
  return "other";
}

}  // namespace

ChatDatabaseCaptureReport::Kind ChatDatabaseCaptureReport::kindOf(const ChatDatabaseFailure& failure) {
  switch (failure.kind()) {
    case ChatDatabaseFailure::Kind::permissionDenied: return Kind::permissionDenied;
    case ChatDatabaseFailure::Kind::notFound: return Kind::notFound;
    case ChatDatabaseFailure::Kind::schemaChanged: return Kind::schemaChanged;
    case ChatDatabaseFailure::Kind::query: return Kind::query;
  }
  return Kind::other;
}

std::optional<std::string> ChatDatabaseCaptureReport::sentence() const {
  switch (kind) {
    case Kind::ok: return std::nullopt;
    case Kind::permissionDenied:
      return "Quarl could not read Messages: macOS refused access to its database. Quarl needs Full Disk Access.";
    case Kind::notFound: return "Quarl could not read Messages: there is no Messages database on this Mac.";
    case Kind::schemaChanged: return "Quarl could not read Messages: its database is in a shape Quarl does not know.";
    case Kind::query: return "Quarl could not read Messages: reading its database failed.";
    case Kind::ingestRefused: return "Quarl read Messages, and Quarl refused what this Mac handed over.";
    case Kind::brainUnreachable: return "Quarl read Messages and could not reach Quarl to hand them over.";
    case Kind::unexpectedAnswer: return "Quarl read Messages and could not make sense of Quarl's answer.";
    case Kind::other: return "Quarl could not finish reading Messages.";
  }
  return std::nullopt;
}

boost::json::object ChatDatabaseCaptureReport::wire() const {
  boost::json::object object{{"at", iso8601(at)},
                             {"ok", kind == Kind::ok},
                             {"kind", kindName(kind)},
                             {"read", read},
                             {"ingested", ingested},
                             {"skippedWithoutText", skippedWithoutText},
                             {"droppedSms", droppedSms},
                             {"alreadySent", alreadySent},
                             {"failed", failed}};
  if (auto text = sentence()) object["sentence"] = *text;
  if (since) object["since"] = iso8601(*since);
  if (attachmentsUnavailable) object["attachmentsUnavailable"] = *attachmentsUnavailable;
  return object;
}

}  // namespace quarl

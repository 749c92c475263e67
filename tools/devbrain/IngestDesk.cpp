#include "IngestDesk.h"

#include <algorithm>
#include <boost/json/serialize.hpp>

#include "Base64.h"
#include "DateText.h"
#include "DevBrain.h"
#include "Utf16Text.h"
#include "WireChecks.h"

namespace devbrain {
namespace json = boost::json;

using namespace wire;

namespace {

constexpr std::int64_t inboundAttachmentLimit = 26'214'400;

// "sentAt" is an internet date-time with fractional seconds.
bool isInternetDateWithFraction(const json::value* value) {
  if (!value || !value->is_string()) return false;
  const std::string_view text = value->get_string();
  return text.find('.') != std::string_view::npos && quarl::instantFromIso8601(text).has_value();
}

std::optional<std::string> attachmentProblem(const json::value& value) {
  if (!value.is_object()) return "an ingested attachment is an object";
  const auto& attachment = value.get_object();
  for (const auto* key : {"externalId", "filename", "mimeType"}) {
    if (!isText(attachment, key)) return std::string("an ingested attachment needs \"") + key + "\" as text";
  }
  if (!isInteger(attachment, "sizeBytes")) return "an ingested attachment needs \"sizeBytes\" as an integer";
  for (const auto* flag : {"sensitive", "ephemeral"}) {
    if (const auto* v = attachment.if_contains(flag); v && *v != json::value(true)) {
      return std::string("\"") + flag + "\" is sent only as true";
    }
  }
  if (attachment.contains("durationSeconds") && !isInteger(attachment, "durationSeconds")) {
    return "\"durationSeconds\" is an integer";
  }
  if (attachment.contains("providerHint") && !isText(attachment, "providerHint")) return "\"providerHint\" is text";
  if (auto key = unknownKey(attachment, {"externalId", "filename", "mimeType", "sizeBytes", "providerHint", "sensitive",
                                         "ephemeral", "durationSeconds"})) {
    return "an ingested attachment has no key \"" + *key + "\"";
  }
  return std::nullopt;
}

std::optional<std::string> ingestProblem(const json::object& body) {
  for (const auto* key : {"channelId", "externalThreadId", "externalMessageId", "body"}) {
    if (!isText(body, key)) return std::string("an ingest needs \"") + key + "\" as text";
  }
  if (!isOneOf(body.if_contains("direction"), {"inbound", "outbound"})) {
    return "\"direction\" is \"inbound\" or \"outbound\"";
  }
  if (!isOneOf(body.if_contains("threadKind"), {"group", "direct"})) return "\"threadKind\" is \"group\" or \"direct\"";
  if (!isInternetDateWithFraction(body.if_contains("sentAt"))) {
    return "\"sentAt\" is an ISO 8601 date-time with fractional seconds";
  }
  if (const auto* v = body.if_contains("sentViaQuarl"); v && *v != json::value(true)) {
    return "\"sentViaQuarl\" is sent only as true";
  }
  if (body.contains("senderIdentifierKind")) {
    if (!body.contains("senderIdentifier")) return "\"senderIdentifierKind\" comes only with \"senderIdentifier\"";
    if (!isOneOf(body.if_contains("senderIdentifierKind"), {"phone", "email"})) {
      return "\"senderIdentifierKind\" is \"phone\" or \"email\"";
    }
  }
  for (const auto* key : {"senderIdentifier", "senderDisplayName", "threadTitle"}) {
    if (body.contains(key) && !isText(body, key)) return std::string("\"") + key + "\" is text";
  }
  if (const auto* title = body.if_contains("threadTitle"); title && title->get_string().empty()) {
    return "an empty \"threadTitle\" is left out";
  }
  if (const auto* attachments = body.if_contains("attachments")) {
    if (!attachments->is_array() || attachments->get_array().empty()) {
      return "\"attachments\" is a non-empty array, left out when there are none";
    }
    for (const auto& attachment : attachments->get_array()) {
      if (auto problem = attachmentProblem(attachment)) return problem;
    }
  }
  if (auto key = unknownKey(body, {"channelId", "externalThreadId", "externalMessageId", "direction", "body", "sentAt",
                                   "threadKind", "sentViaQuarl", "senderIdentifier", "senderIdentifierKind",
                                   "senderDisplayName", "threadTitle", "attachments"})) {
    return "an ingest has no key \"" + *key + "\"";
  }
  return std::nullopt;
}

std::optional<std::string> eventProblem(const json::value& value) {
  if (!value.is_object()) return "a message event is an object";
  const auto& event = value.get_object();
  if (!isText(event, "messageExternalId")) return "a message event names \"messageExternalId\"";
  const auto* kind = event.if_contains("kind");
  if (isOneOf(kind, {"status"})) {
    if (!isOneOf(event.if_contains("status"), {"delivered", "read"})) return "a status is \"delivered\" or \"read\"";
    if (auto key = unknownKey(event, {"kind", "status", "messageExternalId"})) {
      return "a status event has no key \"" + *key + "\"";
    }
    return std::nullopt;
  }
  if (isOneOf(kind, {"reaction"})) {
    if (!isText(event, "reactorKey")) return "a reaction names its \"reactorKey\"";
    const auto* mode = event.if_contains("mode");
    if (!isOneOf(mode, {"add", "remove"})) return "a reaction's \"mode\" is \"add\" or \"remove\"";
    if (mode->get_string() == "add" && !isText(event, "emoji")) return "an added reaction carries its \"emoji\"";
    if (auto key = unknownKey(event, {"kind", "reactorKey", "emoji", "mode", "messageExternalId"})) {
      return "a reaction event has no key \"" + *key + "\"";
    }
    return std::nullopt;
  }
  return "a message event's \"kind\" is \"status\" or \"reaction\"";
}

std::optional<std::string> eventsProblem(const json::object& body) {
  if (!isText(body, "channelId")) return "message events name their \"channelId\"";
  const auto* events = body.if_contains("events");
  if (!events || !events->is_array() || events->get_array().empty() || events->get_array().size() > 500) {
    return "\"events\" is an array of 1 to 500 events";
  }
  for (const auto& event : events->get_array()) {
    if (auto problem = eventProblem(event)) return problem;
  }
  return std::nullopt;
}

std::optional<std::string> reportProblem(const json::object& body) {
  const auto* ok = body.if_contains("ok");
  if (!ok || !ok->is_bool()) return "a job report carries \"ok\" as a boolean";
  if (body.contains("failureReason")) {
    if (!isText(body, "failureReason")) return "\"failureReason\" is text";
    if (quarl::graphemeCount(body.at("failureReason").get_string()) > 300) {
      return "\"failureReason\" is longer than 300 characters";
    }
  }
  if (body.contains("providerMessageId") && !isText(body, "providerMessageId")) return "\"providerMessageId\" is text";
  if (auto key = unknownKey(body, {"ok", "failureReason", "providerMessageId"})) {
    return "a job report has no key \"" + *key + "\"";
  }
  return std::nullopt;
}

// "/v1/relay/jobs/J1/result" split on "/" after the prefix: {"J1", "result"}.
std::vector<std::string> segmentsAfter(const std::string& path, std::string_view prefix) {
  std::vector<std::string> parts;
  if (!path.starts_with(prefix)) return parts;
  std::string rest = path.substr(prefix.size());
  std::size_t start = 0;
  while (start <= rest.size()) {
    const auto slash = rest.find('/', start);
    parts.push_back(rest.substr(start, slash == std::string::npos ? std::string::npos : slash - start));
    if (slash == std::string::npos) break;
    start = slash + 1;
  }
  return parts;
}

}  // namespace

std::optional<std::string> IngestDesk::wireProblem(const std::string& method, const std::string& path,
                                                   const json::object* body) const {
  if (method != "POST") return std::nullopt;
  const auto jobPath = segmentsAfter(path, "/v1/relay/jobs/");
  const auto uploadPath = segmentsAfter(path, "/v1/ingest/attachments/");
  const bool served = path == "/v1/ingest" || path == "/v1/ingest/message-events" || path == "/v1/relay/jobs/claim" ||
                      (jobPath.size() == 2 && jobPath[1] == "result") ||
                      (uploadPath.size() == 2 && uploadPath[1] == "bytes");
  if (!served) return std::nullopt;
  if (!body) return path + " takes a JSON object";
  if (path == "/v1/ingest") return ingestProblem(*body);
  if (path == "/v1/ingest/message-events") return eventsProblem(*body);
  if (path == "/v1/relay/jobs/claim") {
    const auto* limit = body->if_contains("limit");
    if (!limit || !limit->is_int64() || limit->get_int64() < 1 || limit->get_int64() > 100) {
      return "a claim's body is {\"limit\": 1 to 100}";
    }
    return std::nullopt;
  }
  if (!jobPath.empty()) return reportProblem(*body);
  if (!isText(*body, "dataBase64") || body->size() != 1) return "an upload's body is {\"dataBase64\": text}";
  return std::nullopt;
}

std::optional<Answer> IngestDesk::route(const std::string& method, const std::string& path, const json::object& body) {
  if (method == "POST" && path == "/v1/ingest") return ingest(body);
  if (method == "POST" && path == "/v1/ingest/message-events") {
    for (const auto& event : body.at("events").get_array()) {
      auto recorded = event.get_object();
      recorded["channelId"] = body.at("channelId");
      events_.push_back(std::move(recorded));
    }
    return jsonAnswer(200, json::object{});
  }
  if (method == "POST" && path == "/v1/relay/jobs/claim") return claim(body);
  const auto uploadPath = segmentsAfter(path, "/v1/ingest/attachments/");
  if (method == "POST" && uploadPath.size() == 2 && uploadPath[1] == "bytes") return upload(uploadPath[0], body);
  const auto jobPath = segmentsAfter(path, "/v1/relay/jobs/");
  if (method == "POST" && jobPath.size() == 2 && jobPath[1] == "result") return report(jobPath[0], body);
  if (method == "GET" && jobPath.size() == 3 && jobPath[1] == "attachments") return fetchJobFile(jobPath[0], jobPath[2]);
  return std::nullopt;
}

// Like the service, a message handed over again is taken without being stored twice.
Answer IngestDesk::ingest(const json::object& body) {
  const auto inserted = ingestedIds_.emplace(std::string(body.at("channelId").get_string()),
                                             std::string(body.at("externalMessageId").get_string()));
  if (inserted.second) {
    ingested_.push_back(body);
  } else {
    ++duplicateIngests_;
  }
  json::array decisions;
  if (const auto* attachments = body.if_contains("attachments")) {
    for (const auto& attachment : attachments->get_array()) {
      const auto& id = attachment.at("externalId").get_string();
      announcedAttachments_.insert(std::string(id));
      json::object decision{{"externalId", id}, {"wantBytes", wantBytes_}};
      if (!wantBytes_) decision["reason"] = "devbrain was told not to want bytes";
      decisions.push_back(std::move(decision));
    }
  }
  return jsonAnswer(200, json::object{{"attachments", std::move(decisions)}});
}

Answer IngestDesk::upload(const std::string& attachmentId, const json::object& body) {
  if (!announcedAttachments_.contains(attachmentId)) {
    return problem(404, "not_found", "No such attachment on this account.");
  }
  const auto bytes = quarl::base64Decode(body.at("dataBase64").get_string());
  if (!bytes) return problem(400, "wire_rule", "wire rule broken: \"dataBase64\" is standard base64");
  if (static_cast<std::int64_t>(bytes->size()) > inboundAttachmentLimit) {
    return problem(413, "too_large", "That file is over the limit for an inbound attachment.");
  }
  uploads_[attachmentId] = json::object{{"sizeBytes", bytes->size()}, {"dataBase64", body.at("dataBase64")}};
  return jsonAnswer(200, json::object{});
}

Answer IngestDesk::claim(const json::object& body) {
  const auto limit = body.at("limit").get_int64();
  json::array claimed;
  const auto now = std::chrono::steady_clock::now();
  for (auto& job : jobs_) {
    if (static_cast<std::int64_t>(claimed.size()) >= limit) break;
    const bool leaseOver = job.claimed && claimLease_ && now - job.claimedAt >= *claimLease_;
    if (job.claimed && !leaseOver) continue;
    if (leaseOver) job.record["attempts"] = job.record.at("attempts").as_int64() + 1;
    job.claimed = true;
    job.claimedAt = now;
    claimed.push_back(job.record);
  }
  return jsonAnswer(200, json::object{{"jobs", std::move(claimed)}});
}

Answer IngestDesk::report(const std::string& jobId, const json::object& body) {
  const auto found = std::find_if(jobs_.begin(), jobs_.end(),
                                  [&](const Job& job) { return job.record.at("id").get_string() == jobId; });
  if (found == jobs_.end() || !found->claimed) return problem(404, "not_found", "No claimed job has that id.");
  auto recorded = body;
  recorded["jobId"] = jobId;
  reports_.push_back(std::move(recorded));
  jobs_.erase(found);
  return jsonAnswer(200, json::object{});
}

Answer IngestDesk::fetchJobFile(const std::string& jobId, const std::string& attachmentId) const {
  for (const auto& job : jobs_) {
    if (job.record.at("id").get_string() != jobId) continue;
    const auto file = job.files.find(attachmentId);
    if (file != job.files.end()) return jsonAnswer(200, file->second);
  }
  return problem(404, "not_found", "No such attachment on that job.");
}

// {"channelKind", "conversationRef", "body", "threadId"?, "conversationName"?, "attachments"?:
// [{"filename", "mimeType", "dataBase64", "sizeBytes"?}]}; "sizeBytes" may promise another
// length than the data has, to test the Mac's check.
Answer IngestDesk::queueJob(const json::object& body) {
  Job job;
  const auto id = "job-" + std::to_string(++jobCounter_);
  json::array attachments;
  if (const auto* files = body.if_contains("attachments"); files && files->is_array()) {
    int fileCounter = 0;
    for (const auto& file : files->get_array()) {
      const auto& spec = file.as_object();
      const auto fileId = id + "-file-" + std::to_string(++fileCounter);
      const auto bytes = quarl::base64Decode(spec.at("dataBase64").as_string()).value_or("");
      const auto size = spec.contains("sizeBytes") ? spec.at("sizeBytes").as_int64() : std::int64_t(bytes.size());
      json::object record{{"id", fileId},
                          {"filename", spec.at("filename")},
                          {"mimeType", spec.at("mimeType")},
                          {"sizeBytes", size}};
      attachments.push_back(record);
      record["dataBase64"] = spec.at("dataBase64");
      job.files[fileId] = std::move(record);
    }
  }
  job.record = json::object{{"id", id},
                            {"channelKind", body.at("channelKind")},
                            {"threadId", body.contains("threadId") ? body.at("threadId") : json::value("thread-" + id)},
                            {"conversationRef", body.at("conversationRef")},
                            {"body", body.at("body")},
                            {"attachments", std::move(attachments)},
                            {"waitingSeconds", 0},
                            {"attempts", 0}};
  if (body.contains("conversationName")) job.record["conversationName"] = body.at("conversationName");
  jobs_.push_back(std::move(job));
  return jsonAnswer(200, json::object{{"id", id}});
}

std::optional<Answer> IngestDesk::admin(const std::string& method, const std::string& path, const json::object& body) {
  if (method == "GET" && path == "/admin/ingested") return jsonAnswer(200, ingested_);
  if (method == "GET" && path == "/admin/uploads") return jsonAnswer(200, uploads_);
  if (method == "GET" && path == "/admin/events") return jsonAnswer(200, events_);
  if (method == "GET" && path == "/admin/reports") return jsonAnswer(200, reports_);
  if (method == "POST" && path == "/admin/jobs") {
    if (!isText(body, "channelKind") || !isText(body, "conversationRef") || !isText(body, "body")) {
      return problem(400, "bad_admin_call", "A job needs \"channelKind\", \"conversationRef\" and \"body\".");
    }
    return queueJob(body);
  }
  return std::nullopt;
}

void IngestDesk::addStats(json::object& stats) const {
  stats["ingested"] = ingested_.size();
  stats["duplicateIngests"] = duplicateIngests_;
}

void IngestDesk::applySettings(const json::object& body) {
  if (const auto* v = body.if_contains("wantBytes"); v && v->is_bool()) wantBytes_ = v->get_bool();
  if (const auto* v = body.if_contains("claimLeaseMs"); v && v->is_int64()) claimLease_ = std::chrono::milliseconds(v->get_int64());
}

}  // namespace devbrain

#include "OperatorDesk.h"

#include <openssl/evp.h>

#include <algorithm>
#include <boost/json/serialize.hpp>

#include "DevBrain.h"
#include "Utf16Text.h"
#include "WireChecks.h"

namespace devbrain {
namespace json = boost::json;
using namespace wire;
using namespace std::chrono;

namespace {

constexpr std::string_view nextPath = "/v1/mac/operator/next";
constexpr std::string_view stepsPrefix = "/v1/mac/operator/steps/";
constexpr std::string_view runsPrefix = "/v1/mac/operator/runs/";
constexpr std::int64_t longestWait = 60;
constexpr std::int64_t answerWithinMs = 30'000;
constexpr std::int64_t fileMax = 200'000'000;

std::string sha256Hex(const std::string& bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr);
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (unsigned int i = 0; i < length; ++i) text += {digits[digest[i] >> 4], digits[digest[i] & 15]};
  return text;
}

// The companion's canonical form of a run and a step: keys sorted at every level, no white space,
// whole numbers in plain decimal. Boost.JSON's compact serializer escapes as that form does.
json::value canonicalValue(const json::value& value) {
  if (value.is_double() && value.get_double() == static_cast<double>(static_cast<std::int64_t>(value.get_double()))) {
    return static_cast<std::int64_t>(value.get_double());
  }
  if (value.is_array()) {
    json::array items;
    for (const auto& item : value.get_array()) items.push_back(canonicalValue(item));
    return items;
  }
  if (!value.is_object()) return value;
  std::vector<std::string> keys;
  for (const auto& member : value.get_object()) keys.emplace_back(member.key());
  std::sort(keys.begin(), keys.end());
  json::object sorted;
  for (const auto& key : keys) sorted[key] = canonicalValue(value.get_object().at(key));
  return sorted;
}

// What the service sends as the owner's press of `step` in `runId`.
std::string pressOf(const json::value& runId, const json::value& step) {
  return sha256Hex(json::serialize(canonicalValue(json::object{{"runId", runId}, {"step", step}})));
}

std::optional<std::int64_t> decimalHeader(const std::map<std::string, std::string>& headers, const std::string& name) {
  const auto found = headers.find(name);
  if (found == headers.end() || found->second.empty() || found->second.size() > 15 ||
      found->second.find_first_not_of("0123456789") != std::string::npos) {
    return std::nullopt;
  }
  return std::stoll(found->second);
}

bool isDigest(const std::string& text) {
  return text.size() == 64 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

// The id between `prefix` and `suffix` of `path`; none when the path is not of that shape.
std::optional<std::string> idBetween(const std::string& path, std::string_view prefix, std::string_view suffix) {
  if (!path.starts_with(prefix) || !path.ends_with(suffix) || path.size() <= prefix.size() + suffix.size()) {
    return std::nullopt;
  }
  auto id = path.substr(prefix.size(), path.size() - prefix.size() - suffix.size());
  if (id.find('/') != std::string::npos) return std::nullopt;
  return id;
}

std::optional<std::string> sentenceProblem(const json::object& body, std::string_view key) {
  if (!isText(body, key)) return "\"" + std::string(key) + "\" is a sentence";
  const auto length = quarl::utf16Length(body.at(key).get_string());
  if (length == 0 || length > 300) return "\"" + std::string(key) + "\" is 1 to 300 UTF-16 code units";
  return std::nullopt;
}

std::optional<std::string> pollProblem(const json::object& body) {
  if (auto key = unknownKey(body, {"wait", "holding", "can"})) return "a poll has no key \"" + *key + "\"";
  const auto* wait = body.if_contains("wait");
  if (!wait || !wait->is_int64() || wait->get_int64() < 0 || wait->get_int64() > longestWait) {
    return "a poll's \"wait\" is a whole number of seconds from 0 to 60";
  }
  if (const auto* holding = body.if_contains("holding");
      holding && (!holding->is_string() || holding->get_string().empty())) {
    return "a poll's \"holding\" is a run id, left out when no run is live";
  }
  const auto* can = body.if_contains("can");
  if (!can || !can->is_array()) return "a poll's \"can\" is an array of capability classes";
  for (const auto& klass : can->get_array()) {
    if (!isOneOf(&klass, {"files", "screen", "act", "consequential"})) {
      return "a poll's \"can\" holds something that is not an advertised capability class";
    }
  }
  return std::nullopt;
}

std::optional<std::string> resultProblem(const json::object& body) {
  const auto* outcome = body.if_contains("outcome");
  if (!isOneOf(outcome, {"done", "needs_press", "refused", "failed"})) {
    return "a step's \"outcome\" is \"done\", \"needs_press\", \"refused\" or \"failed\"";
  }
  const std::string_view kind = outcome->get_string();
  if (kind == "done") {
    if (auto key = unknownKey(body, {"outcome", "result"})) return "a done step has no key \"" + *key + "\"";
    const auto* result = body.if_contains("result");
    if (!result || !result->is_object() || !isText(result->get_object(), "kind")) {
      return "a done step carries a \"result\" object naming its \"kind\"";
    }
    return std::nullopt;
  }
  if (kind == "needs_press") {
    if (auto key = unknownKey(body, {"outcome", "sentence", "asks"})) return "a held step has no key \"" + *key + "\"";
    if (body.contains("asks") && !isOneOf(body.if_contains("asks"), {"app", "folder"})) {
      return "\"asks\" is \"app\" or \"folder\"";
    }
    return sentenceProblem(body, "sentence");
  }
  if (auto key = unknownKey(body, {"outcome", "reason"})) return "a refused or failed step has no key \"" + *key + "\"";
  return sentenceProblem(body, "reason");
}

}  // namespace

std::optional<std::string> OperatorDesk::wireProblem(const std::string& method, const std::string& path,
                                                     const json::object* body) const {
  if (path == nextPath) {
    if (method != "POST" || !body) return "the operator poll is a POST with a JSON body";
    return pollProblem(*body);
  }
  if (idBetween(path, stepsPrefix, "/result")) {
    if (method != "POST" || !body) return "a step's result is a POST with a JSON body";
    return resultProblem(*body);
  }
  if (idBetween(path, runsPrefix, "/stopped")) {
    if (method != "POST" || !body) return "a stopped run is a POST with a JSON body";
    if (auto key = unknownKey(*body, {"by"})) return "a stopped run has no key \"" + *key + "\"";
    if (!isOneOf(body->if_contains("by"), {"bar", "menu", "hotkey", "conditions", "quit"})) {
      return "\"by\" names who stopped the run: \"bar\", \"menu\", \"hotkey\", \"conditions\" or \"quit\"";
    }
  }
  return std::nullopt;
}

std::optional<Answer> OperatorDesk::route(const std::string& method, const std::string& path, const json::object& body) {
  if (path == nextPath && method == "POST") return poll(body);
  if (auto stepId = idBetween(path, stepsPrefix, "/result"); stepId && method == "POST") return result(*stepId, body);
  if (auto runId = idBetween(path, runsPrefix, "/stopped"); runId && method == "POST") return stopped(*runId, body);
  return std::nullopt;
}

Answer OperatorDesk::poll(const json::object& body) {
  const auto generation = ++pollGeneration_;
  changed();  // a poll still held for this Mac is answered now: this one replaces it
  if (auto queued = takeQueued()) return jsonAnswer(200, *queued);

  Answer answer = jsonAnswer(200, idle());
  auto hold = milliseconds(seconds(body.at("wait").as_int64()));
  if (holdLimit_) hold = std::min(hold, *holdLimit_);
  answer.holdFor = hold;
  answer.held = [this, generation](bool last) -> std::optional<Answer> {
    if (generation != pollGeneration_) return jsonAnswer(200, idle());
    if (auto queued = takeQueued()) return jsonAnswer(200, *queued);
    if (last) return jsonAnswer(200, idle());
    return std::nullopt;
  };
  return answer;
}

std::optional<json::object> OperatorDesk::takeQueued() {
  if (queue_.empty()) return std::nullopt;
  auto next = std::move(queue_.front());
  queue_.pop_front();
  const std::string runId(next.at("runId").as_string());
  if (next.at("kind") == "step") {
    // A run the Mac reported stopped stays over: a late step of it does not make it live again.
    if (!wasStopped(runId)) liveRunId_ = runId;
    handedRuns_.insert(runId);
    if (liveRunId_) next["liveRunId"] = *liveRunId_;
  } else if (liveRunId_ == runId) {
    liveRunId_.reset();
  }
  return next;
}

json::object OperatorDesk::idle() const {
  json::object answer{{"kind", "idle"}};
  if (liveRunId_) answer["liveRunId"] = *liveRunId_;
  return answer;
}

Answer OperatorDesk::result(const std::string& stepId, const json::object& body) {
  const auto found = steps_.find(stepId);
  if (found == steps_.end()) return problem(404, "not_found", "No step has the id " + stepId + ".");
  if (found->second.answered) return problem(409, "already_answered", "Step " + stepId + " was already answered.");
  found->second.answered = true;
  results_.push_back(json::object{{"stepId", stepId}, {"runId", found->second.runId}, {"result", body}});
  return jsonAnswer(200, json::object{{"accepted", true}});
}

bool OperatorDesk::wasStopped(const std::string& runId) const {
  for (const auto& stop : stops_) {
    if (stop.at("runId") == runId.c_str()) return true;
  }
  return false;
}

Answer OperatorDesk::stopped(const std::string& runId, const json::object& body) {
  if (!handedRuns_.contains(runId)) return problem(404, "not_found", "No run " + runId + " reached this Mac.");
  if (wasStopped(runId)) return problem(409, "already_stopped", "Run " + runId + " was already stopped.");
  stops_.push_back(json::object{{"runId", runId}, {"by", body.at("by")}});
  if (liveRunId_ == runId) liveRunId_.reset();
  return jsonAnswer(200, json::object{});
}

std::optional<Answer> OperatorDesk::admin(const std::string& method, const std::string& path, const json::object& body) {
  if (path == "/admin/operator/results") return jsonAnswer(200, results_);
  if (path == "/admin/operator/stops") return jsonAnswer(200, stops_);
  if (path == "/admin/operator/files") {
    json::array files;
    for (const auto& [stepId, transfer] : transfers_) {
      auto state = stateOf(transfer);
      state["stepId"] = stepId;
      state["sha256"] = sha256Hex(transfer.bytes);
      files.push_back(std::move(state));
    }
    return jsonAnswer(200, files);
  }
  if (path == "/admin/operator/steps" && method == "POST") return queueStep(body);
  if (path == "/admin/operator/stop" && method == "POST") return queueStop(body);
  return std::nullopt;
}

Answer OperatorDesk::queueStep(const json::object& body) {
  if (!isText(body, "runId") || !body.contains("step")) {
    return problem(400, "bad_request",
                   "A step is queued as {\"runId\", \"step\", \"permit\"?, \"pressed\"?}: \"pressed\" true presses this "
                   "step, {\"runId\", \"step\"} presses another, a string is sent as it is.");
  }
  const auto stepId = "step-" + std::to_string(++counter_);
  const std::string runId(body.at("runId").as_string());
  json::object answer{{"kind", "step"},           {"runId", runId},      {"stepId", stepId}, {"step", body.at("step")},
                      {"ordinal", ++ordinal_},    {"answerWithinMs", answerWithinMs}};
  if (const auto* permit = body.if_contains("permit")) answer["permit"] = *permit;
  if (const auto* pressed = body.if_contains("pressed")) {
    if (*pressed == true) {
      answer["pressed"] = pressOf(json::value(runId), body.at("step"));
    } else if (pressed->is_object() && pressed->get_object().contains("runId") && pressed->get_object().contains("step")) {
      answer["pressed"] = pressOf(pressed->get_object().at("runId"), pressed->get_object().at("step"));
    } else {
      answer["pressed"] = *pressed;
    }
  }
  const auto* kind = body.at("step").is_object() ? body.at("step").get_object().if_contains("kind") : nullptr;
  steps_[stepId] = Step{runId, false, kind && *kind == "send_file"};
  queue_.push_back(std::move(answer));
  changed();
  return jsonAnswer(200, json::object{{"stepId", stepId}});
}

Answer OperatorDesk::queueStop(const json::object& body) {
  if (!isText(body, "runId")) return problem(400, "bad_request", "A stop is queued as {\"runId\"}.");
  queue_.push_back(json::object{{"kind", "stop"}, {"runId", body.at("runId")}});
  changed();
  return jsonAnswer(200, json::object{});
}

void OperatorDesk::applySettings(const json::object& body) {
  if (const auto* v = body.if_contains("operatorHoldMs"); v && v->is_int64()) holdLimit_ = milliseconds(v->get_int64());
  if (const auto* v = body.if_contains("fileChunkTakeMax"); v && v->is_int64()) chunkTakeMax_ = v->get_int64();
}

std::optional<Answer> OperatorDesk::fileTransfer(const std::string& method, const std::string& path,
                                                const std::map<std::string, std::string>& headers,
                                                const std::string& bytes) {
  const auto stepId = idBetween(path, stepsPrefix, "/file");
  if (!stepId || (method != "GET" && method != "PUT")) return std::nullopt;
  const auto step = steps_.find(*stepId);
  if (step == steps_.end() || !step->second.bringsFile) {
    return problem(404, "not_found", "No step " + *stepId + " brings a file.");
  }
  if (method == "GET") return jsonAnswer(200, stateOf(transfers_[*stepId]));
  return takeChunk(*stepId, headers, bytes);
}

// Like the service: a chunk that does not start where the held bytes end is answered 409 with
// the state to go on from; the whole file is checked against its digest when the last byte
// arrives, and a file that does not match is dropped.
Answer OperatorDesk::takeChunk(const std::string& stepId, const std::map<std::string, std::string>& headers,
                               const std::string& bytes) {
  const auto offset = decimalHeader(headers, "x-quarl-offset");
  const auto total = decimalHeader(headers, "x-quarl-total");
  const auto digest = headers.contains("x-quarl-sha256") ? headers.at("x-quarl-sha256") : std::string();
  const auto type = headers.contains("content-type") ? headers.at("content-type") : std::string();
  if (!offset || !total || !isDigest(digest) || type != "application/octet-stream") {
    return wireRule("a chunk is application/octet-stream with x-quarl-offset, x-quarl-total and a lower-case "
                    "hexadecimal x-quarl-sha256");
  }
  if (*offset + static_cast<std::int64_t>(bytes.size()) > *total) return wireRule("a chunk ends past x-quarl-total");
  if (*total > fileMax) return problem(413, "too_large", "That file is larger than Quarl takes from a Mac.");
  auto& transfer = transfers_[stepId];
  const auto held = static_cast<std::int64_t>(transfer.bytes.size());
  if (transfer.complete || *offset != held || (transfer.total && *transfer.total != *total) ||
      (transfer.sha256 && *transfer.sha256 != digest)) {
    return jsonAnswer(409, stateOf(transfer));
  }
  transfer.total = *total;
  transfer.sha256 = digest;
  const auto take = chunkTakeMax_ ? std::min<std::size_t>(bytes.size(), static_cast<std::size_t>(*chunkTakeMax_))
                                  : bytes.size();
  transfer.bytes.append(bytes, 0, take);
  if (static_cast<std::int64_t>(transfer.bytes.size()) == *total) {
    if (sha256Hex(transfer.bytes) != digest) {
      transfer = Transfer{};
      return problem(422, "digest_mismatch", "the bytes do not match their SHA-256");
    }
    transfer.complete = true;
  }
  return jsonAnswer(200, stateOf(transfer));
}

json::object OperatorDesk::stateOf(const Transfer& transfer) {
  json::object state{{"received", static_cast<std::int64_t>(transfer.bytes.size())}, {"complete", transfer.complete}};
  if (transfer.total) state["total"] = *transfer.total;
  return state;
}

void OperatorDesk::changed() const {
  if (changed_) changed_();
}

}  // namespace devbrain

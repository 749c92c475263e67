#include "DevBrain.h"

#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <algorithm>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include "Base64.h"
#include "Utf16Text.h"

namespace devbrain {
namespace json = boost::json;
using namespace std::chrono;

namespace {

std::string randomToken(std::size_t bytes) {
  std::string raw(bytes, '\0');
  RAND_bytes(reinterpret_cast<unsigned char*>(raw.data()), static_cast<int>(bytes));
  return quarl::base64UrlEncode(raw);
}

std::string hmacSha256(const std::string& key, const std::string& data) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(data.data()),
       data.size(), digest, &length);
  return std::string(reinterpret_cast<const char*>(digest), length);
}

std::optional<std::string> text(const json::object& body, std::string_view key) {
  const auto* value = body.if_contains(key);
  if (!value || !value->is_string()) return std::nullopt;
  return std::string(value->get_string());
}

std::string header(const Request& request, const std::string& name) {
  const auto found = request.headers.find(name);
  return found == request.headers.end() ? std::string() : found->second;
}

bool isDecimal(const std::string& value) {
  return !value.empty() && std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// The path of a null anywhere in `value`, or none. The one null the wire allows is the
// heartbeat's top-level "blockedReason", which the caller passes as `allowed`.
std::optional<std::string> nullPath(const json::value& value, const std::string& at, const std::string& allowed) {
  if (value.is_null()) return at == allowed ? std::nullopt : std::optional(at);
  if (value.is_object()) {
    for (const auto& member : value.get_object()) {
      if (auto found = nullPath(member.value(), at + "/" + std::string(member.key()), allowed)) return found;
    }
  }
  if (value.is_array()) {
    for (std::size_t i = 0; i < value.get_array().size(); ++i) {
      if (auto found = nullPath(value.get_array()[i], at + "/" + std::to_string(i), allowed)) return found;
    }
  }
  return std::nullopt;
}

bool isUnsigned(const std::string& path) { return path == "/v1/auth/refresh" || path.starts_with("/v1/devices/pair/"); }

}  // namespace

Answer wireRule(const std::string& rule) { return problem(400, "wire_rule", "wire rule broken: " + rule); }

Answer jsonAnswer(int status, const json::value& body) {
  Answer answer;
  answer.status = status;
  answer.body = json::serialize(body);
  return answer;
}

Answer problem(int status, std::string_view code, std::string_view message) {
  return jsonAnswer(status, json::object{{"code", code}, {"message", message}});
}

DevBrain::DevBrain(std::string baseURL) : baseURL_(std::move(baseURL)), signingKey_(randomToken(32)) {}

Answer DevBrain::handle(const Request& request) {
  const auto path = request.target.substr(0, request.target.find('?'));
  std::optional<json::object> body;
  std::string bodyProblem;
  if (!request.body.empty()) {
    boost::system::error_code error;
    auto parsed = json::parse(request.body, error);
    if (!error && parsed.is_object()) body = std::move(parsed.as_object());
    else bodyProblem = "the body is not a JSON object";
  }
  // The WhatsApp Web stand-in is a web page, not the service: no wire rules, no request log.
  if (auto page = whatsapp_.route(request.method, path, header(request, "cookie"), body.value_or(json::object{}))) {
    return *page;
  }
  if (path.starts_with("/admin/")) {
    if (!bodyProblem.empty()) return wireRule(bodyProblem);
    return admin(request, path, body.value_or(json::object{}));
  }

  json::object headers;
  for (const auto& [name, value] : request.headers) headers[name] = value;
  // Raw uploads carry bytes, not JSON; every other body must be a JSON object. The log keeps
  // only the length of raw bytes, which are no text.
  const bool rawBody = header(request, "content-type") != "application/json";
  json::object logged{{"method", request.method}, {"path", path}, {"target", request.target}, {"headers", headers}};
  if (rawBody && !request.body.empty()) logged["bodyBytes"] = request.body.size();
  else logged["body"] = request.body;
  requestLog_.push_back(std::move(logged));

  if (!bodyProblem.empty() && !rawBody) return wireRule(bodyProblem);
  if (auto rule = wireProblem(request, path, rawBody ? std::nullopt : body)) return wireRule(*rule);
  auto fault = takeFault(path);
  if (fault && !fault->pass) return fault->answer;
  auto answer = route(request, path, body.value_or(json::object{}));
  if (fault) answer.delay = fault->answer.delay;
  return answer;
}

std::optional<std::string> DevBrain::wireProblem(const Request& request, const std::string& path,
                                                 const std::optional<json::object>& body) const {
  if (header(request, "x-quarl-platform").empty()) return "x-quarl-platform is missing";
  if (!isDecimal(header(request, "x-quarl-build"))) return "x-quarl-build must be the build number in decimal";
  if (header(request, "x-quarl-version").empty()) return "x-quarl-version is missing";
  if ((request.method == "POST" || request.method == "PUT") && !request.body.empty() &&
      header(request, "content-type").empty()) {
    return "a body needs a content-type";
  }
  if (isUnsigned(path)) {
    if (request.headers.contains("authorization")) return path + " is not signed: no authorization header";
    if (path == "/v1/auth/refresh" && request.headers.contains("x-quarl-device")) {
      return "the token exchange carries no x-quarl-device header";
    }
  } else {
    if (!header(request, "authorization").starts_with("Bearer ")) return "authorization must be \"Bearer \" + token";
    if (header(request, "x-quarl-device").empty()) return "x-quarl-device is missing";
  }
  if (body) {
    const std::string allowed = path == "/v1/relay/heartbeat" ? "/blockedReason" : "";
    if (auto at = nullPath(*body, "", allowed)) return "no nulls in bodies, found one at " + *at;
  }
  if (auto rule = desk_.wireProblem(request.method, path, body ? &*body : nullptr)) return rule;
  if (auto rule = operatorDesk_.wireProblem(request.method, path, body ? &*body : nullptr)) return rule;
  if (path == "/v1/relay/heartbeat") {
    if (!body) return "the heartbeat needs a JSON body";
    const auto* channels = body->if_contains("channels");
    if (!channels || !channels->is_array()) return "the heartbeat's \"channels\" must be an array";
    for (const auto& channel : channels->get_array()) {
      if (!channel.is_string() ||
          (channel.get_string() != "imessage" && channel.get_string() != "sms" && channel.get_string() != "whatsapp")) {
        return "the heartbeat's \"channels\" holds something that is not a channel kind";
      }
    }
    const auto* reason = body->if_contains("blockedReason");
    if (!reason) return "the heartbeat always carries \"blockedReason\", null when there is none";
    if (!reason->is_null() && !reason->is_string()) return "\"blockedReason\" must be text or null";
    if (reason->is_string() && quarl::utf16Length(reason->get_string()) > 200) {
      return "\"blockedReason\" is longer than 200 UTF-16 code units";
    }
    if (const auto* nudges = body->if_contains("nudgeNotices"); nudges && *nudges != json::value(true)) {
      return "\"nudgeNotices\" is sent only as true";
    }
  }
  return std::nullopt;
}

std::optional<DevBrain::TakenFault> DevBrain::takeFault(const std::string& path) {
  const auto found = std::find_if(faults_.begin(), faults_.end(), [&](const Fault& f) { return f.path == path; });
  if (found == faults_.end()) return std::nullopt;
  if (found->skip > 0) {
    --found->skip;
    return std::nullopt;
  }
  Answer answer;
  answer.status = found->status;
  answer.body = found->body;
  answer.delay = found->delay;
  answer.drop = found->drop;
  TakenFault taken{std::move(answer), found->pass};
  if (--found->times <= 0) faults_.erase(found);
  return taken;
}

Answer DevBrain::route(const Request& request, const std::string& path, const json::object& body) {
  if (path == "/v1/auth/refresh" && request.method == "POST") return refresh(body);
  if (path == "/v1/devices/pair/start" && request.method == "POST") return pairStart(body);
  if (path == "/v1/devices/pair/poll" && request.method == "POST") return pairPoll(body);

  const auto bearer = header(request, "authorization").substr(7);
  const auto token = accessTokens_.find(bearer);
  if (token == accessTokens_.end() || token->second.expiry <= system_clock::now()) {
    return problem(401, "token_expired", "The access token is not valid.");
  }
  if (token->second.deviceId != header(request, "x-quarl-device")) {
    return wireRule("x-quarl-device must be the device the token was issued to");
  }
  auto& device = devices_.at(token->second.deviceId);
  if (path == "/v1/relay/heartbeat" && request.method == "POST") return heartbeat(device, body);
  if (path == "/api/auth/companion" && request.method == "POST") {
    if (!request.body.empty()) return wireRule("the panel session is asked for with no body");
    return panelSession(device);
  }
  if (path.starts_with("/v1/mac/devices/") && path.ends_with("/permissions/mode") && request.method == "PUT") {
    return setPermissionMode(device, path, body);
  }
  if (auto answer = desk_.route(request.method, path, body)) return *answer;
  if (auto answer = operatorDesk_.route(request.method, path, body)) return *answer;
  if (auto answer = operatorDesk_.fileTransfer(request.method, path, request.headers, request.body)) return *answer;
  return problem(404, "not_found", "devbrain does not serve " + request.method + " " + path + ".");
}

// Like the service, a Mac may narrow its own mode; a wider one is set only from a screen.
Answer DevBrain::setPermissionMode(const Device& device, const std::string& path, const json::object& body) {
  static constexpr std::string_view modes[] = {"ask", "auto_read", "auto"};
  const auto mode = text(body, "mode");
  const auto chosen = std::find(std::begin(modes), std::end(modes), mode.value_or(""));
  if (!mode || body.size() != 1 || chosen == std::end(modes)) {
    return wireRule("a permission mode is {\"mode\": \"ask\" | \"auto_read\" | \"auto\"}");
  }
  if (path != "/v1/mac/devices/" + device.id + "/permissions/mode") {
    return problem(404, "not_found", "This Mac is not the device in that path.");
  }
  auto& held = devices_.at(device.id).permissionMode;
  if (chosen > std::find(std::begin(modes), std::end(modes), held)) {
    return problem(403, "wider_mode", "A wider mode is set only by the owner's own press on a screen.");
  }
  held = *mode;
  return jsonAnswer(200, json::object{{"mode", held}});
}

Answer DevBrain::refresh(const json::object& body) {
  ++refreshExchanges_;
  const auto presented = text(body, "refreshToken");
  if (!presented) return wireRule("the token exchange's body is {\"refreshToken\": text}");
  const auto found = refreshTokens_.find(*presented);
  if (found == refreshTokens_.end()) return problem(400, "invalid_token", "This refresh token is not known.");
  if (found->second.used) {
    // A rotated-out token shown again means two holders: end the device's whole session.
    const auto deviceId = found->second.deviceId;
    std::erase_if(refreshTokens_, [&](const auto& entry) { return entry.second.deviceId == deviceId; });
    std::erase_if(accessTokens_, [&](const auto& entry) { return entry.second.deviceId == deviceId; });
    return problem(401, "reuse_detected", "This refresh token was already used; the session has ended.");
  }
  found->second.used = true;
  return jsonAnswer(200, issueTokens(found->second.deviceId));
}

Answer DevBrain::pairStart(const json::object& body) {
  if (!text(body, "deviceName") || !text(body, "platform")) {
    return wireRule("pairing starts with \"deviceName\" and \"platform\"");
  }
  Pairing pairing;
  pairing.userCode = "QRL-" + std::to_string(1000 + ++counter_);
  pairing.deviceCode = randomToken(24);
  pairing.expiry = steady_clock::now() + seconds(pairingExpiresInSeconds_);
  if (autoApprove_) pairing.status = "approved";
  pairings_.push_back(pairing);
  return jsonAnswer(200, json::object{{"userCode", pairing.userCode},
                                      {"deviceCode", pairing.deviceCode},
                                      {"verificationUrl", baseURL_ + "/pair?code=" + pairing.userCode},
                                      {"expiresInSeconds", pairingExpiresInSeconds_},
                                      {"intervalSeconds", pairingIntervalSeconds_}});
}

Answer DevBrain::pairPoll(const json::object& body) {
  const auto deviceCode = text(body, "deviceCode");
  if (!deviceCode) return wireRule("a pairing poll's body is {\"deviceCode\": text}");
  const auto found = std::find_if(pairings_.begin(), pairings_.end(),
                                  [&](const Pairing& p) { return p.deviceCode == *deviceCode; });
  if (found == pairings_.end()) return problem(404, "not_found", "No pairing has that device code.");
  if (found->status == "pending" && steady_clock::now() >= found->expiry) found->status = "expired";
  if (found->status != "approved") return jsonAnswer(200, json::object{{"status", found->status}});

  if (!found->deviceId) found->deviceId = newDevice().id;
  auto answer = issueTokens(*found->deviceId);
  answer["status"] = "approved";
  answer["deviceId"] = *found->deviceId;
  answer["userId"] = devices_.at(*found->deviceId).userId;
  if (found->withoutRefreshToken) answer.erase("refreshToken");
  return jsonAnswer(200, answer);
}

// The panel's web session: two cookies, as the service sets them, for the panel's site.
Answer DevBrain::panelSession(const Device& device) {
  auto answer = jsonAnswer(200, json::object{{"ok", true}});
  answer.headers.emplace_back("Set-Cookie", "quarl_session=" + randomToken(24) + "; Path=/; HttpOnly; Secure; SameSite=Lax");
  answer.headers.emplace_back("Set-Cookie", "quarl_device=" + device.id + "; Path=/; Secure; SameSite=Lax");
  return answer;
}

Answer DevBrain::heartbeat(const Device& device, const json::object& body) {
  json::object channelIds;
  json::array unmatched;
  for (const auto& channel : body.at("channels").get_array()) {
    const std::string kind(channel.get_string());
    if (std::find(connectedChannels_.begin(), connectedChannels_.end(), kind) != connectedChannels_.end()) {
      channelIds[kind] = "ch-" + kind;
    } else {
      unmatched.emplace_back(kind);
    }
  }
  json::object answer{{"channels", body.at("channels")},
                      {"waitingJobs", 0},
                      {"channelIds", channelIds},
                      {"macPermissionMode", device.permissionMode}};
  if (!unmatched.empty()) answer["unmatched"] = unmatched;
  return jsonAnswer(200, answer);
}

Answer DevBrain::admin(const Request& request, const std::string& path, const json::object& body) {
  if (path == "/admin/requests") return jsonAnswer(200, requestLog_);
  if (auto answer = desk_.admin(request.method, path, body)) return *answer;
  if (auto answer = operatorDesk_.admin(request.method, path, body)) return *answer;
  if (auto answer = whatsapp_.admin(request.method, path, body)) return *answer;
  if (path == "/admin/stats") {
    json::object stats{{"refreshExchanges", refreshExchanges_}};
    desk_.addStats(stats);
    return jsonAnswer(200, stats);
  }
  if (request.method != "POST") return problem(404, "not_found", "Admin calls other than reads are POST.");

  if (path == "/admin/devices") {
    if (const auto* ttl = body.if_contains("accessTtlSeconds"); ttl && ttl->is_int64()) accessTtlSeconds_ = ttl->get_int64();
    auto& device = newDevice();
    auto answer = issueTokens(device.id);
    answer["deviceId"] = device.id;
    return jsonAnswer(200, answer);
  }
  if (path == "/admin/devices/mode") {
    const auto found = devices_.find(text(body, "deviceId").value_or(""));
    const auto mode = text(body, "mode");
    if (found == devices_.end() || !mode) return problem(400, "bad_request", "Set as {\"deviceId\", \"mode\"}.");
    found->second.permissionMode = *mode;
    return jsonAnswer(200, json::object{});
  }
  if (path == "/admin/access/expire") {
    const auto deviceId = text(body, "deviceId");
    std::erase_if(accessTokens_, [&](const auto& entry) { return !deviceId || entry.second.deviceId == *deviceId; });
    return jsonAnswer(200, json::object{});
  }
  if (path == "/admin/faults") {
    Fault fault;
    fault.path = text(body, "path").value_or("");
    if (const auto* v = body.if_contains("status"); v && v->is_int64()) fault.status = int(v->get_int64());
    fault.body = text(body, "body").value_or("");
    if (const auto* v = body.if_contains("delayMs"); v && v->is_int64()) fault.delay = milliseconds(v->get_int64());
    if (const auto* v = body.if_contains("drop"); v && v->is_bool()) fault.drop = v->get_bool();
    if (const auto* v = body.if_contains("pass"); v && v->is_bool()) fault.pass = v->get_bool();
    if (const auto* v = body.if_contains("times"); v && v->is_int64()) fault.times = int(v->get_int64());
    if (const auto* v = body.if_contains("skip"); v && v->is_int64()) fault.skip = int(v->get_int64());
    faults_.push_back(fault);
    return jsonAnswer(200, json::object{});
  }
  if (path == "/admin/faults/clear") {
    faults_.clear();
    return jsonAnswer(200, json::object{});
  }
  if (path == "/admin/pairings/approve" || path == "/admin/pairings/refuse" || path == "/admin/pairings/expire") {
    auto* pairing = findPairing(body);
    if (!pairing) return problem(404, "not_found", "No pending pairing matches.");
    pairing->status = path.ends_with("approve") ? "approved" : path.ends_with("refuse") ? "denied" : "expired";
    if (const auto* v = body.if_contains("withoutRefreshToken"); v && v->is_bool()) {
      pairing->withoutRefreshToken = v->get_bool();
    }
    return jsonAnswer(200, json::object{{"userCode", pairing->userCode}});
  }
  if (path == "/admin/settings") {
    desk_.applySettings(body);
    operatorDesk_.applySettings(body);
    if (const auto* v = body.if_contains("autoApprove"); v && v->is_bool()) autoApprove_ = v->get_bool();
    if (const auto* v = body.if_contains("pairingExpiresInSeconds"); v && v->is_int64()) pairingExpiresInSeconds_ = v->get_int64();
    if (const auto* v = body.if_contains("pairingIntervalSeconds"); v && v->is_int64()) pairingIntervalSeconds_ = v->get_int64();
    if (const auto* v = body.if_contains("accessTtlSeconds"); v && v->is_int64()) accessTtlSeconds_ = v->get_int64();
    if (const auto* v = body.if_contains("connectedChannels"); v && v->is_array()) {
      connectedChannels_.clear();
      for (const auto& kind : v->get_array()) {
        if (kind.is_string()) connectedChannels_.emplace_back(kind.get_string());
      }
    }
    return jsonAnswer(200, json::object{});
  }
  return problem(404, "not_found", "devbrain has no admin call " + path + ".");
}

json::object DevBrain::issueTokens(const std::string& deviceId) {
  const auto refreshToken = randomToken(32);
  refreshTokens_[refreshToken] = RefreshToken{deviceId};
  return json::object{{"accessToken", mintAccessToken(deviceId)}, {"refreshToken", refreshToken}};
}

std::string DevBrain::mintAccessToken(const std::string& deviceId) {
  const auto expiry = system_clock::now() + seconds(accessTtlSeconds_);
  const auto header = quarl::base64UrlEncode(R"({"alg":"HS256","typ":"JWT"})");
  const auto payload = quarl::base64UrlEncode(json::serialize(json::object{
      {"sub", deviceId}, {"exp", duration_cast<seconds>(expiry.time_since_epoch()).count()}, {"jti", ++counter_}}));
  const auto signature = quarl::base64UrlEncode(hmacSha256(signingKey_, header + "." + payload));
  auto token = header + "." + payload + "." + signature;
  accessTokens_[token] = AccessToken{deviceId, expiry};
  return token;
}

DevBrain::Device& DevBrain::newDevice() {
  const auto id = "dev-" + std::to_string(++counter_);
  return devices_[id] = Device{id, "user-1"};
}

DevBrain::Pairing* DevBrain::findPairing(const json::object& body) {
  const auto userCode = text(body, "userCode");
  for (auto it = pairings_.rbegin(); it != pairings_.rend(); ++it) {
    if (userCode ? it->userCode == *userCode : it->status == "pending") return &*it;
  }
  return nullptr;
}

}  // namespace devbrain

#include "Endpoints.h"

namespace quarl {
namespace {

constexpr std::string_view get = "GET";
constexpr std::string_view post = "POST";
constexpr std::string_view put = "PUT";

std::string joined(std::string_view a, std::string_view b, std::string_view c = {},
                   std::string_view d = {}) {
  std::string out;
  out.reserve(a.size() + b.size() + c.size() + d.size());
  out.append(a).append(b).append(c).append(d);
  return out;
}

}  // namespace

// The exchange's path has no leading slash; the transport drops one leading slash from the
// others, so all of them land under the base address alike.
QuarlEndpoint QuarlEndpoint::tokenExchange() { return {post, "v1/auth/refresh"}; }
QuarlEndpoint QuarlEndpoint::pairStart() { return {post, "/v1/devices/pair/start"}; }
QuarlEndpoint QuarlEndpoint::pairPoll() { return {post, "/v1/devices/pair/poll"}; }
QuarlEndpoint QuarlEndpoint::heartbeat() { return {post, "/v1/relay/heartbeat"}; }
QuarlEndpoint QuarlEndpoint::claimJobs() { return {post, "/v1/relay/jobs/claim"}; }
QuarlEndpoint QuarlEndpoint::relayAttachment(std::string_view jobId, std::string_view attachmentId) {
  return {get, joined("/v1/relay/jobs/", jobId, "/attachments/", attachmentId)};
}
QuarlEndpoint QuarlEndpoint::reportJob(std::string_view jobId) {
  return {post, joined("/v1/relay/jobs/", jobId, "/result")};
}
QuarlEndpoint QuarlEndpoint::ingest() { return {post, "/v1/ingest"}; }
QuarlEndpoint QuarlEndpoint::uploadInboundAttachment(std::string_view attachmentId) {
  return {post, joined("/v1/ingest/attachments/", attachmentId, "/bytes")};
}
QuarlEndpoint QuarlEndpoint::messageEvents() { return {post, "/v1/ingest/message-events"}; }
QuarlEndpoint QuarlEndpoint::nextOperatorStep() { return {post, "/v1/mac/operator/next"}; }
QuarlEndpoint QuarlEndpoint::postOperatorResult(std::string_view stepId) {
  return {post, joined("/v1/mac/operator/steps/", stepId, "/result")};
}
QuarlEndpoint QuarlEndpoint::postRunStopped(std::string_view runId) {
  return {post, joined("/v1/mac/operator/runs/", runId, "/stopped")};
}
QuarlEndpoint QuarlEndpoint::setPermissionMode(std::string_view deviceId) {
  return {put, joined("/v1/mac/devices/", deviceId, "/permissions/mode")};
}
QuarlEndpoint QuarlEndpoint::operatorFileState(std::string_view stepId) {
  return {get, joined("/v1/mac/operator/steps/", stepId, "/file")};
}
QuarlEndpoint QuarlEndpoint::operatorFileChunk(std::string_view stepId) {
  return {put, joined("/v1/mac/operator/steps/", stepId, "/file")};
}
QuarlEndpoint QuarlEndpoint::panelSession() { return {post, "/api/auth/companion"}; }

}  // namespace quarl

#pragma once

#include <string>
#include <string_view>

namespace quarl {

// The one catalogue of the service endpoints the companion calls. Every call takes its
// method and path from here; paths with identifiers are built by plain concatenation.
struct QuarlEndpoint {
  std::string_view method;
  std::string path;

  static QuarlEndpoint tokenExchange();
  static QuarlEndpoint pairStart();
  static QuarlEndpoint pairPoll();
  static QuarlEndpoint heartbeat();
  static QuarlEndpoint claimJobs();
  static QuarlEndpoint relayAttachment(std::string_view jobId, std::string_view attachmentId);
  static QuarlEndpoint reportJob(std::string_view jobId);
  static QuarlEndpoint ingest();
  static QuarlEndpoint uploadInboundAttachment(std::string_view attachmentId);
  static QuarlEndpoint messageEvents();
  static QuarlEndpoint nextOperatorStep();
  static QuarlEndpoint postOperatorResult(std::string_view stepId);
  static QuarlEndpoint postRunStopped(std::string_view runId);
  static QuarlEndpoint setPermissionMode(std::string_view deviceId);
  static QuarlEndpoint operatorFileState(std::string_view stepId);
  static QuarlEndpoint operatorFileChunk(std::string_view stepId);
  static QuarlEndpoint panelSession();
};

}  // namespace quarl

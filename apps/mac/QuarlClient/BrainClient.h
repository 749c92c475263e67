#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/strand.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <boost/json/value_to.hpp>
#include <boost/system/result.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "BrainClientFailure.h"
#include "ClientIdentity.h"
#include "Clock.h"
#include "Credentials.h"
#include "Endpoints.h"
#include "Heartbeat.h"
#include "HttpTransport.h"
#include "OperatorRecords.h"
#include "RelayRecords.h"

namespace quarl {

// The companion's only client of the service's API. It signs every request with the Mac's
// credentials, renews the access token once on a 401 and turns every refusal into a Failure.
//
// Serialised: all of its state lives on its own strand, and every public operation hops onto
// it, so callers on any executor may share one client. The object must outlive the operations
// awaited on it.
class BrainClient {
 public:
  using Failure = BrainClientFailure;
  template <class T>
  using Result = boost::system::result<T, Failure>;
  // Told after every rotation, so that the owner can persist the new pair.
  using TokensCallback = std::function<void(const std::string& accessToken, const std::string& refreshToken)>;

  struct RawAnswer {
    int status = 0;
    std::string body;
  };

  BrainClient(boost::asio::any_io_executor executor, std::string baseURL, ClientIdentity identity,
              std::optional<Credentials> credentials, std::shared_ptr<HttpTransport> transport,
              std::shared_ptr<const Clock> clock, TokensCallback onTokens);
  ~BrainClient();

  // A JSON endpoint: the answer's body as JSON (null when the body is empty).
  boost::asio::awaitable<Result<boost::json::value>> call(QuarlEndpoint endpoint,
                                                          std::optional<boost::json::object> body);

  // A JSON endpoint whose answer is decoded as T (through Boost.JSON's value_to).
  template <class T>
  boost::asio::awaitable<Result<T>> call(QuarlEndpoint endpoint, std::optional<boost::json::object> body) {
    auto answer = co_await call(std::move(endpoint), std::move(body));
    if (!answer) co_return answer.error();
    auto decoded = boost::json::try_value_to<T>(*answer);
    if (!decoded) co_return Failure::decoding(decoded.error().message());
    co_return std::move(*decoded);
  }

  // A raw endpoint: the status and body as they came, refusals included.
  boost::asio::awaitable<Result<RawAnswer>> send(QuarlEndpoint endpoint, std::optional<std::string> body,
                                                 std::optional<std::string> contentType, HttpHeaders headers);

  // Tells the service what this Mac offers; the answer names channel ids and what waits.
  boost::asio::awaitable<Result<HeartbeatResponse>> heartbeat(HeartbeatReport report);

  // Relay jobs for this Mac, at most `limit`.
  boost::asio::awaitable<Result<std::vector<RelayJob>>> claimJobs(int limit);
  boost::asio::awaitable<Result<void>> reportJob(std::string jobId, bool ok, std::optional<std::string> failureReason,
                                                 std::optional<std::string> providerMessageId);
  // A relay attachment's bytes; fails before handing over bytes that are missing or of
  // another length than promised, so a truncated file is never sent on.
  boost::asio::awaitable<Result<FetchedFile>> relayAttachmentBytes(std::string jobId, std::string attachmentId);
  // Hands one message over; the answer says which of its attachments the service wants.
  boost::asio::awaitable<Result<std::vector<AttachmentDecision>>> ingest(IngestMessage message);
  boost::asio::awaitable<Result<void>> uploadInboundAttachment(std::string attachmentId, std::string bytes);
  // One batch of receipts and reactions of one channel.
  boost::asio::awaitable<Result<void>> postMessageEvents(std::string channelId, boost::json::array events);

  // The service's view of the file a step asked for, as it answered: status and body.
  boost::asio::awaitable<Result<RawAnswer>> operatorFileState(std::string stepId);
  // One chunk of that file, at `offset` of `total` bytes whose SHA-256 (hex) is `sha256`.
  boost::asio::awaitable<Result<RawAnswer>> operatorFileChunk(std::string stepId, std::int64_t offset,
                                                              std::int64_t total, std::string sha256, std::string bytes);

  // Sets this Mac's permission mode (its raw value: "ask", "auto_read" or "auto") on the
  // service; the status and body as they came. The service sets a wider mode only at the
  // owner's own press on a screen, so the Mac asks only for narrower ones.
  boost::asio::awaitable<Result<RawAnswer>> setPermissionMode(std::string deviceId, std::string mode);

  // The next operator step, held by the service up to `wait` seconds.
  boost::asio::awaitable<Result<OperatorNextAnswer>> nextOperatorStep(std::int64_t wait,
                                                                      std::optional<std::string> holding,
                                                                      std::vector<std::string> can);
  // A step's outcome; true when the service accepted it.
  boost::asio::awaitable<Result<bool>> postOperatorResult(std::string stepId, boost::json::object result);
  // Who ended a run, for the service; the HTTP status, or 0 when no answer came.
  boost::asio::awaitable<int> reportRunStopped(std::string runId, std::string by);

  // A web session for the panel, signed with the access token held now. A 401 comes back as
  // it is, not renewed, so that the caller can say it renews for the panel. The answer as it
  // came: the session is in its Set-Cookie headers.
  boost::asio::awaitable<Result<HttpResponse>> panelSession();

  // An access token with more than 60 s of life left, renewing first if needed.
  boost::asio::awaitable<Result<std::string>> usableAccessToken();
  // Rotates the pair now and returns the new access token.
  boost::asio::awaitable<Result<std::string>> renew();
  // Read on the client's strand.
  boost::asio::awaitable<std::optional<std::string>> currentAccessToken();

 private:
  struct RenewalFlight;

  // A JSON call's 2xx answer as it came; a refusal as a Failure.
  boost::asio::awaitable<Result<HttpResponse>> jsonExchange(QuarlEndpoint endpoint, std::optional<boost::json::object> body);
  boost::asio::awaitable<Result<void>> callWithoutAnswer(QuarlEndpoint endpoint, std::optional<boost::json::object> body);
  boost::asio::awaitable<Result<HttpResponse>> signedRequest(QuarlEndpoint endpoint, std::optional<std::string> body,
                                                              std::string contentType, HttpHeaders extraHeaders);
  boost::asio::awaitable<Result<HttpResponse>> panelSessionOnStrand();
  boost::asio::awaitable<Result<HttpResponse>> signedAttempt(QuarlEndpoint endpoint, std::optional<std::string> body,
                                                              std::string contentType, HttpHeaders extraHeaders,
                                                              Credentials signedWith);
  boost::asio::awaitable<Result<Credentials>> refresh(std::optional<std::string> after);
  boost::asio::awaitable<Result<Credentials>> exchange(std::string refreshToken, std::string deviceId);
  boost::asio::awaitable<Result<std::string>> usableAccessTokenOnStrand();
  boost::asio::awaitable<Result<std::string>> renewOnStrand();
  std::optional<std::string> heldAccessToken() const;

  boost::asio::strand<boost::asio::any_io_executor> strand_;
  std::string baseURL_;
  ClientIdentity identity_;
  std::optional<Credentials> credentials_;
  std::shared_ptr<HttpTransport> transport_;
  std::shared_ptr<const Clock> clock_;
  TokensCallback onTokens_;
  std::shared_ptr<RenewalFlight> refreshInFlight_;
};

}  // namespace quarl

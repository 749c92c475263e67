#include "BrainClient.h"


#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <cmath>

#include "Base64.h"
#include "JsonFields.h"
#include "Tokens.h"

namespace quarl {
namespace asio = boost::asio;
namespace json = boost::json;

namespace {

constexpr std::chrono::seconds requestTimeout{60};
constexpr std::chrono::seconds renewalMargin{60};
constexpr std::string_view jsonContentType = "application/json";

// A refusal as a Failure: the code from "code", else "error", else `defaultCode`; the
// message from "message", else `defaultMessage`. A body that is not JSON gives the defaults.
BrainClientFailure refusalFailure(int status, std::string_view body, std::string defaultCode,
                                  std::string defaultMessage) {
  boost::system::error_code error;
  auto problem = json::parse(body, error);
  if (error) problem.emplace_null();
  auto code = textField(problem, "code");
  if (!code) code = textField(problem, "error");
  auto message = textField(problem, "message");
  return BrainClientFailure::http(status, code.value_or(std::move(defaultCode)),
                                  message.value_or(std::move(defaultMessage)));
}

// The new pair of a token exchange's answer, with the device id unchanged; none without both.
std::optional<Credentials> renewedCredentials(std::string_view body, std::string deviceId) {
  boost::system::error_code error;
  const auto answer = json::parse(body, error);
  if (error) return std::nullopt;
  auto access = textField(answer, "accessToken");
  auto refresh = textField(answer, "refreshToken");
  if (!access || !refresh) return std::nullopt;
  return Credentials{std::move(*access), std::move(*refresh), std::move(deviceId)};
}

// Boost.JSON would write infinity as a bare `Infinity`, which is not JSON.
bool holdsNonFiniteNumber(const json::value& value) {
  switch (value.kind()) {
    case json::kind::double_: return !std::isfinite(value.get_double());
    case json::kind::array:
      for (const auto& element : value.get_array())
        if (holdsNonFiniteNumber(element)) return true;
      return false;
    case json::kind::object:
      for (const auto& member : value.get_object())
        if (holdsNonFiniteNumber(member.value())) return true;
      return false;
    default: return false;
  }
}

}  // namespace

// The one token exchange under way: every caller that needs a renewal meanwhile awaits it.
// The timer is only a signal; it never expires by itself.
struct BrainClient::RenewalFlight {
  explicit RenewalFlight(const asio::any_io_executor& executor) : done(executor, asio::steady_timer::time_point::max()) {}

  asio::awaitable<Result<Credentials>> outcome() {
    while (!result) co_await done.async_wait(asio::as_tuple(asio::use_awaitable));
    co_return *result;
  }
  void finish(Result<Credentials> value) {
    result = std::move(value);
    done.cancel();
  }

  asio::steady_timer done;
  std::optional<Result<Credentials>> result;
};

BrainClient::BrainClient(asio::any_io_executor executor, std::string baseURL, ClientIdentity identity,
                         std::optional<Credentials> credentials, std::shared_ptr<HttpTransport> transport,
                         std::shared_ptr<const Clock> clock, TokensCallback onTokens)
    : strand_(asio::make_strand(std::move(executor))),
      baseURL_(std::move(baseURL)),
      identity_(std::move(identity)),
      credentials_(std::move(credentials)),
      transport_(std::move(transport)),
      clock_(std::move(clock)),
      onTokens_(std::move(onTokens)) {}

BrainClient::~BrainClient() = default;

asio::awaitable<BrainClient::Result<HttpResponse>> BrainClient::jsonExchange(QuarlEndpoint endpoint,
                                                                            std::optional<json::object> body) {
  std::optional<std::string> text;
  if (body) {
    if (holdsNonFiniteNumber(*body)) co_return Failure::unsendable("it held a number JSON cannot carry");
    text = json::serialize(*body);
  }
  auto response = co_await asio::co_spawn(
      strand_, signedRequest(std::move(endpoint), std::move(text), std::string(jsonContentType), {}),
      asio::use_awaitable);
  if (!response) co_return response.error();
  if (response->status < 200 || response->status > 299) {
    co_return refusalFailure(response->status, response->body, "error", "The request was refused.");
  }
  co_return std::move(*response);
}

asio::awaitable<BrainClient::Result<json::value>> BrainClient::call(QuarlEndpoint endpoint,
                                                                    std::optional<json::object> body) {
  auto response = co_await jsonExchange(std::move(endpoint), std::move(body));
  if (!response) co_return response.error();
  if (response->body.empty()) co_return json::value();
  boost::system::error_code error;
  auto answer = json::parse(response->body, error);
  if (error) co_return Failure::decoding(error.message());
  co_return answer;
}

// An endpoint whose answer is empty: any 2xx is success, whatever its body holds.
asio::awaitable<BrainClient::Result<void>> BrainClient::callWithoutAnswer(QuarlEndpoint endpoint,
                                                                         std::optional<json::object> body) {
  auto response = co_await jsonExchange(std::move(endpoint), std::move(body));
  if (!response) co_return response.error();
  co_return Result<void>();
}

asio::awaitable<BrainClient::Result<BrainClient::RawAnswer>> BrainClient::send(QuarlEndpoint endpoint,
                                                                              std::optional<std::string> body,
                                                                              std::optional<std::string> contentType,
                                                                              HttpHeaders headers) {
  auto response = co_await asio::co_spawn(
      strand_, signedRequest(std::move(endpoint), std::move(body), contentType.value_or(""), std::move(headers)),
      asio::use_awaitable);
  if (!response) co_return response.error();
  co_return RawAnswer{response->status, std::move(response->body)};
}

asio::awaitable<BrainClient::Result<HttpResponse>> BrainClient::signedRequest(QuarlEndpoint endpoint,
                                                                             std::optional<std::string> body,
                                                                             std::string contentType,
                                                                             HttpHeaders extraHeaders) {
  if (!credentials_) co_return Failure::notSignedIn();
  const Credentials used = *credentials_;
  auto first = co_await signedAttempt(endpoint, body, contentType, extraHeaders, used);
  if (!first || first->status != 401) co_return first;

  // Renew against the token this request used, so that a rotation made meanwhile by another
  // caller is taken up instead of presenting the refresh token again. Then the one retry; a
  // second 401 goes back to the caller as it is.
  auto renewed = co_await refresh(used.accessToken);
  if (!renewed) co_return renewed.error();
  co_return co_await signedAttempt(std::move(endpoint), std::move(body), std::move(contentType),
                                   std::move(extraHeaders), *renewed);
}

asio::awaitable<BrainClient::Result<HttpResponse>> BrainClient::panelSession() {
  co_return co_await asio::co_spawn(strand_, panelSessionOnStrand(), asio::use_awaitable);
}

asio::awaitable<BrainClient::Result<HttpResponse>> BrainClient::panelSessionOnStrand() {
  if (!credentials_) co_return Failure::notSignedIn();
  co_return co_await signedAttempt(QuarlEndpoint::panelSession(), std::nullopt, "", {}, *credentials_);
}

asio::awaitable<BrainClient::Result<HttpResponse>> BrainClient::signedAttempt(QuarlEndpoint endpoint,
                                                                             std::optional<std::string> body,
                                                                             std::string contentType,
                                                                             HttpHeaders extraHeaders,
                                                                             Credentials signedWith) {
  HttpRequest request{std::string(endpoint.method), serviceURL(baseURL_, endpoint.path),
                      identityHeaders(identity_, std::move(contentType)), std::move(body), requestTimeout};
  request.headers.emplace_back("authorization", "Bearer " + signedWith.accessToken);
  request.headers.emplace_back("x-quarl-device", signedWith.deviceId);
  for (auto& header : extraHeaders) request.headers.push_back(std::move(header));

  auto response = co_await transport_->perform(std::move(request));
  if (!response) co_return Failure::transport(response.error());
  co_return std::move(*response);
}

asio::awaitable<BrainClient::Result<HeartbeatResponse>> BrainClient::heartbeat(HeartbeatReport report) {
  co_return co_await call<HeartbeatResponse>(QuarlEndpoint::heartbeat(), heartbeatBody(report));
}

namespace {

// Bodies are built outside the coroutines: GCC 12 miscompiles some initialiser lists inside them.
json::object claimBody(int limit) { return json::object{{"limit", limit}}; }
json::object uploadBody(const std::string& bytes) { return json::object{{"dataBase64", base64Encode(bytes)}}; }
json::object stoppedBody(std::string by) { return json::object{{"by", std::move(by)}}; }
json::object eventsBody(std::string channelId, json::array events) {
  return json::object{{"channelId", std::move(channelId)}, {"events", std::move(events)}};
}

}  // namespace

asio::awaitable<BrainClient::Result<std::vector<RelayJob>>> BrainClient::claimJobs(int limit) {
  auto claimed = co_await call<ClaimResponse>(QuarlEndpoint::claimJobs(), claimBody(limit));
  if (!claimed) co_return claimed.error();
  co_return std::move(claimed->jobs);
}

asio::awaitable<BrainClient::Result<void>> BrainClient::reportJob(std::string jobId, bool ok,
                                                                  std::optional<std::string> failureReason,
                                                                  std::optional<std::string> providerMessageId) {
  co_return co_await callWithoutAnswer(QuarlEndpoint::reportJob(jobId), jobReportBody(ok, failureReason, providerMessageId));
}

asio::awaitable<BrainClient::Result<FetchedFile>> BrainClient::relayAttachmentBytes(std::string jobId,
                                                                                     std::string attachmentId) {
  auto fetched = co_await call<FetchedAttachment>(QuarlEndpoint::relayAttachment(jobId, attachmentId), std::nullopt);
  if (!fetched) co_return fetched.error();
  auto checked = checkedBytes(*fetched);
  if (checked.problem) co_return Failure::decoding(*checked.problem);
  co_return std::move(*checked.file);
}

asio::awaitable<BrainClient::Result<std::vector<AttachmentDecision>>> BrainClient::ingest(IngestMessage message) {
  auto answer = co_await call<IngestResponse>(QuarlEndpoint::ingest(), ingestBody(message));
  if (!answer) co_return answer.error();
  co_return std::move(answer->attachments);
}

asio::awaitable<BrainClient::Result<void>> BrainClient::uploadInboundAttachment(std::string attachmentId,
                                                                                std::string bytes) {
  co_return co_await callWithoutAnswer(QuarlEndpoint::uploadInboundAttachment(attachmentId), uploadBody(bytes));
}

asio::awaitable<BrainClient::Result<void>> BrainClient::postMessageEvents(std::string channelId, json::array events) {
  co_return co_await callWithoutAnswer(QuarlEndpoint::messageEvents(), eventsBody(std::move(channelId), std::move(events)));
}

asio::awaitable<BrainClient::Result<BrainClient::RawAnswer>> BrainClient::operatorFileState(std::string stepId) {
  // Arguments are named locals: GCC 12 mishandles temporaries built inside a co_await.
  HttpHeaders none;
  co_return co_await send(QuarlEndpoint::operatorFileState(stepId), std::nullopt, std::nullopt, std::move(none));
}

asio::awaitable<BrainClient::Result<BrainClient::RawAnswer>> BrainClient::operatorFileChunk(
    std::string stepId, std::int64_t offset, std::int64_t total, std::string sha256, std::string bytes) {
  HttpHeaders headers{{"x-quarl-offset", std::to_string(offset)},
                      {"x-quarl-total", std::to_string(total)},
                      {"x-quarl-sha256", std::move(sha256)}};
  std::optional<std::string> contentType = std::string("application/octet-stream");
  co_return co_await send(QuarlEndpoint::operatorFileChunk(stepId), std::move(bytes), std::move(contentType),
                          std::move(headers));
}

asio::awaitable<BrainClient::Result<BrainClient::RawAnswer>> BrainClient::setPermissionMode(std::string deviceId,
                                                                                        std::string mode) {
  auto text = json::serialize(json::object{{"mode", std::move(mode)}});
  std::optional<std::string> contentType = std::string(jsonContentType);
  HttpHeaders none;
  co_return co_await send(QuarlEndpoint::setPermissionMode(deviceId), std::move(text), std::move(contentType),
                          std::move(none));
}

asio::awaitable<BrainClient::Result<OperatorNextAnswer>> BrainClient::nextOperatorStep(
    std::int64_t wait, std::optional<std::string> holding, std::vector<std::string> can) {
  auto body = nextOperatorStepBody(wait, holding, can);
  co_return co_await call<OperatorNextAnswer>(QuarlEndpoint::nextOperatorStep(), std::move(body));
}

asio::awaitable<BrainClient::Result<bool>> BrainClient::postOperatorResult(std::string stepId, json::object result) {
  auto answer = co_await call(QuarlEndpoint::postOperatorResult(stepId), std::move(result));
  if (!answer) co_return answer.error();
  const auto* accepted = answer->is_object() ? answer->as_object().if_contains("accepted") : nullptr;
  if (!accepted || !accepted->is_bool()) co_return Failure::decoding("the answer to a step's outcome has no \"accepted\"");
  co_return accepted->get_bool();
}

asio::awaitable<int> BrainClient::reportRunStopped(std::string runId, std::string by) {
  auto body = stoppedBody(std::move(by));
  std::optional<std::string> contentType = std::string(jsonContentType);
  HttpHeaders none;
  auto text = json::serialize(body);
  auto answer = co_await send(QuarlEndpoint::postRunStopped(runId), std::move(text), std::move(contentType), std::move(none));
  co_return answer ? answer->status : 0;
}

asio::awaitable<BrainClient::Result<std::string>> BrainClient::usableAccessToken() {
  co_return co_await asio::co_spawn(strand_, usableAccessTokenOnStrand(), asio::use_awaitable);
}

asio::awaitable<BrainClient::Result<std::string>> BrainClient::usableAccessTokenOnStrand() {
  if (credentials_ && accessTokenIsUsable(credentials_->accessToken, renewalMargin, clock_->now())) {
    co_return credentials_->accessToken;
  }
  auto held = heldAccessToken();
  auto renewed = co_await refresh(std::move(held));
  if (!renewed) co_return renewed.error();
  co_return renewed->accessToken;
}

asio::awaitable<BrainClient::Result<std::string>> BrainClient::renew() {
  co_return co_await asio::co_spawn(strand_, renewOnStrand(), asio::use_awaitable);
}

asio::awaitable<BrainClient::Result<std::string>> BrainClient::renewOnStrand() {
  auto held = heldAccessToken();
  auto renewed = co_await refresh(std::move(held));
  if (!renewed) co_return renewed.error();
  co_return renewed->accessToken;
}

asio::awaitable<std::optional<std::string>> BrainClient::currentAccessToken() {
  co_await asio::dispatch(strand_, asio::use_awaitable);
  co_return heldAccessToken();
}

// Named, not written inline: GCC 12 destroys a temporary made by ?: inside a co_await
// expression twice.
std::optional<std::string> BrainClient::heldAccessToken() const {
  if (!credentials_) return std::nullopt;
  return credentials_->accessToken;
}

asio::awaitable<BrainClient::Result<Credentials>> BrainClient::refresh(std::optional<std::string> after) {
  if (credentials_ && after && credentials_->accessToken != *after) co_return *credentials_;
  if (auto flight = refreshInFlight_) co_return co_await flight->outcome();
  if (!credentials_) co_return Failure::notSignedIn();

  auto flight = std::make_shared<RenewalFlight>(strand_);
  refreshInFlight_ = flight;
  auto renewed = co_await exchange(credentials_->refreshToken, credentials_->deviceId);
  refreshInFlight_.reset();
  if (renewed) credentials_ = *renewed;
  flight->finish(renewed);
  co_return renewed;
}

asio::awaitable<BrainClient::Result<Credentials>> BrainClient::exchange(std::string refreshToken, std::string deviceId) {
  const auto endpoint = QuarlEndpoint::tokenExchange();
  HttpRequest request{std::string(endpoint.method), serviceURL(baseURL_, endpoint.path),
                      identityHeaders(identity_, std::string(jsonContentType)),
                      json::serialize(json::object{{"refreshToken", refreshToken}}), requestTimeout};
  auto response = co_await transport_->perform(std::move(request));
  if (!response) co_return Failure::transport(response.error());

  const int status = response->status;
  if (status < 200 || status > 299) {
    // A refused refresh token (4xx) means the session is gone; a rate limit or a server
    // fault is something a later attempt may cure.
    const bool rejected = status >= 400 && status <= 499 && status != 429;
    std::string defaultCode = rejected ? "invalid_token" : "unavailable";
    co_return refusalFailure(status, response->body, std::move(defaultCode),
                             "Quarl could not renew this Mac's sign-in.");
  }
  auto renewed = renewedCredentials(response->body, std::move(deviceId));
  if (!renewed) co_return Failure::decoding("the refresh response carried no token pair");
  if (onTokens_) onTokens_(renewed->accessToken, renewed->refreshToken);
  co_return std::move(*renewed);
}

}  // namespace quarl

#include "PairingClient.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include "Endpoints.h"
#include "JsonFields.h"

namespace quarl {
namespace asio = boost::asio;
namespace json = boost::json;

namespace {

constexpr std::string_view unusablePairing = "Quarl did not return a usable pairing.";
constexpr std::string_view noSession = "Quarl approved this device but sent no session.";

PairingClient::Failure failure(std::string_view sentence) { return {std::string(sentence)}; }

// The answers are read in plain functions, not in the coroutines: GCC 12 rejects some
// initializer lists and string-literal temporaries inside a coroutine body.
PairingClient::Result<PairingClient::Started> readStarted(const json::object& answer) {
  auto userCode = textField(answer, "userCode");
  auto deviceCode = textField(answer, "deviceCode");
  auto verificationUrl = textField(answer, "verificationUrl");
  const auto expiresIn = integerField(answer, "expiresInSeconds");
  const auto interval = integerField(answer, "intervalSeconds");
  if (!userCode || !deviceCode || !verificationUrl || !expiresIn || !interval || *interval < 0) {
    return failure(unusablePairing);
  }
  return PairingClient::Started{std::move(*userCode), std::move(*deviceCode), std::move(*verificationUrl), *expiresIn,
                                *interval};
}

PairingClient::Result<PairingClient::Poll> readPoll(const json::object& answer) {
  using Status = PairingClient::Poll::Status;
  const auto status = textField(answer, "status").value_or("");
  PairingClient::Poll poll;
  if (status == "pending") return poll;
  if (status == "denied") return PairingClient::Poll{Status::denied, {}, {}};
  if (status == "expired") return PairingClient::Poll{Status::expired, {}, {}};
  if (status != "approved") return failure(unusablePairing);

  auto access = textField(answer, "accessToken");
  auto refresh = textField(answer, "refreshToken");
  auto deviceId = textField(answer, "deviceId");
  if (!access || !refresh || !deviceId) return failure(noSession);
  poll.status = Status::approved;
  poll.credentials = Credentials{std::move(*access), std::move(*refresh), std::move(*deviceId)};
  poll.userId = textField(answer, "userId");
  return poll;
}

}  // namespace

PairingClient::PairingClient(std::string baseURL, ClientIdentity identity, std::shared_ptr<HttpTransport> transport)
    : baseURL_(std::move(baseURL)), identity_(std::move(identity)), transport_(std::move(transport)) {}

asio::awaitable<PairingClient::Result<PairingClient::Started>> PairingClient::start(json::object extra) {
  extra["deviceName"] = identity_.deviceName;
  extra["platform"] = identity_.platform;
  auto answer = co_await post(QuarlEndpoint::pairStart().path, std::move(extra));
  if (!answer) co_return answer.error();
  co_return readStarted(*answer);
}

asio::awaitable<PairingClient::Result<PairingClient::Poll>> PairingClient::poll(std::string deviceCode) {
  json::object body;
  body["deviceCode"] = std::move(deviceCode);
  auto answer = co_await post(QuarlEndpoint::pairPoll().path, std::move(body));
  if (!answer) co_return answer.error();
  co_return readPoll(*answer);
}

asio::awaitable<PairingClient::Result<json::object>> PairingClient::post(std::string path, json::object body) {
  HttpRequest request{"POST", serviceURL(baseURL_, path), identityHeaders(identity_, "application/json"),
                      json::serialize(body)};
  auto response = co_await transport_->perform(std::move(request));
  if (!response) co_return failure("Could not reach Quarl: " + response.error());

  boost::system::error_code error;
  auto answer = json::parse(response->body, error);
  const bool isObject = !error && answer.is_object();
  if (response->status < 200 || response->status > 299) {
    if (isObject) {
      if (auto message = textField(answer, "message")) co_return failure(*message);
    }
    co_return failure("Quarl refused the request (" + std::to_string(response->status) + ")");
  }
  if (!isObject) co_return failure(unusablePairing);
  co_return std::move(answer.as_object());
}

}  // namespace quarl

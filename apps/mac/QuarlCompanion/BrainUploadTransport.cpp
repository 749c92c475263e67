#include "BrainUploadTransport.h"

#include <boost/json/parse.hpp>

#include "JsonFields.h"

namespace quarl {
namespace json = boost::json;
using Kind = FileUploadFailure::Kind;

namespace {

UploadTransport::Result fromClient(const BrainClient::Result<BrainClient::RawAnswer>& answer, bool resumable) {
  if (!answer) {
    if (answer.error().isNotSignedIn() || answer.error().isSessionGone()) return FileUploadFailure(Kind::notSignedIn);
    return FileUploadFailure(Kind::other);
  }
  return BrainUploadTransport::state(answer->status, answer->body, resumable);
}

}  // namespace

UploadTransport::Result BrainUploadTransport::state(int status, const std::string& body, bool resumable) {
  boost::system::error_code error;
  const auto parsed = json::parse(body, error);
  const auto sentence = error ? std::nullopt : textField(parsed, "sentence");
  const bool success = status >= 200 && status <= 299;
  if (success || (resumable && status == 409)) {
    if (error) return FileUploadFailure(Kind::other);
    auto decoded = json::try_value_to<MacUploadState>(parsed);
    if (!decoded) return FileUploadFailure(Kind::other, {}, sentence);
    return *decoded;
  }
  if (status == 401) return FileUploadFailure(Kind::notSignedIn);
  if (status >= 400 && status <= 499 && status != 408 && status != 429) {
    const auto message = error ? std::nullopt : textField(parsed, "message");
    return FileUploadFailure(Kind::refused, message.value_or("it answered " + std::to_string(status)), sentence);
  }
  return FileUploadFailure(Kind::other, {}, sentence);
}

boost::asio::awaitable<UploadTransport::Result> BrainUploadTransport::uploadState(std::string stepId) {
  const auto answer = co_await client_.operatorFileState(std::move(stepId));
  co_return fromClient(answer, false);
}

boost::asio::awaitable<UploadTransport::Result> BrainUploadTransport::uploadChunk(std::string stepId,
                                                                                  std::int64_t offset,
                                                                                  std::int64_t total,
                                                                                  std::string sha256,
                                                                                  std::string bytes) {
  if (stopped_ && stopped_()) co_return FileUploadFailure(Kind::stopped);
  const auto answer =
      co_await client_.operatorFileChunk(std::move(stepId), offset, total, std::move(sha256), std::move(bytes));
  co_return fromClient(answer, true);
}

}  // namespace quarl

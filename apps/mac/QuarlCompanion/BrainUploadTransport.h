#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/system/result.hpp>
#include <functional>
#include <string>

#include "BrainClient.h"
#include "FileUploadFailure.h"
#include "MacUploadState.h"

namespace quarl {

// Where the chunks of a file asked for by step go: the service, or a test's stand-in.
class UploadTransport {
 public:
  using Result = boost::system::result<MacUploadState, FileUploadFailure>;
  virtual ~UploadTransport() = default;
  virtual boost::asio::awaitable<Result> uploadState(std::string stepId) = 0;
  virtual boost::asio::awaitable<Result> uploadChunk(std::string stepId, std::int64_t offset, std::int64_t total,
                                                     std::string sha256, std::string bytes) = 0;
};

// The service's file endpoints through the Mac's client. The client must outlive it. Once
// `stopped` says the owner stopped the run, no further chunk goes out.
class BrainUploadTransport final : public UploadTransport {
 public:
  BrainUploadTransport(BrainClient& client, std::function<bool()> stopped)
      : client_(client), stopped_(std::move(stopped)) {}

  boost::asio::awaitable<Result> uploadState(std::string stepId) override;
  boost::asio::awaitable<Result> uploadChunk(std::string stepId, std::int64_t offset, std::int64_t total,
                                             std::string sha256, std::string bytes) override;

  // An answer as a state, or why not. A `resumable` call's 409 carries the state the service
  // holds, from which the upload goes on.
  static Result state(int status, const std::string& body, bool resumable);

 private:
  BrainClient& client_;
  std::function<bool()> stopped_;
};

}  // namespace quarl

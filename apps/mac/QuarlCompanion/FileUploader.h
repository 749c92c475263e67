#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/system/result.hpp>
#include <cstdint>
#include <string>

#include "BrainUploadTransport.h"

namespace quarl {

// Brings one file to the service in checked chunks, resuming from what the service already holds.
struct FileUploader {
  // The largest chunk sent in one call; a caller's smaller chunk size is used as it is.
  static constexpr std::size_t chunkMax = 4'194'304;
  // How many answers in a row may leave the service's count where it was before giving up.
  static constexpr int defaultStalls = 3;
  // How many chunks in a row may be lost on the way before giving up.
  static constexpr int interruptionsMax = 3;

  struct Digest {
    std::string sha256;  // lower-case hex
    std::int64_t bytes = 0;
  };
  struct Uploaded {
    std::int64_t bytes = 0;
    std::string sha256;
    MacUploadState state;
  };
  template <class T>
  using Result = boost::system::result<T, FileUploadFailure>;

  // The SHA-256 of the whole file, read `chunk` bytes at a time, and its length. Blocks.
  static Result<Digest> digest(const std::string& path, std::size_t chunk);

  // Digest first, then the service's state, then the chunks from its `received` offset until it
  // says the file is complete; after a chunk lost on the way, the state again and on from there.
  // File reads run on a worker.
  static boost::asio::awaitable<Result<Uploaded>> upload(std::string path, std::string stepId,
                                                         UploadTransport& transport, std::size_t chunk = chunkMax,
                                                         int stalls = defaultStalls);
};

}  // namespace quarl

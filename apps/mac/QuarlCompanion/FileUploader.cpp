#include "FileUploader.h"

#include <fstream>
#include <memory>

#include "Sha256.h"
#include "Workers.h"

namespace quarl {
namespace asio = boost::asio;
using Kind = FileUploadFailure::Kind;

namespace {

// `length` bytes of `path` from `offset`; none when the file cannot give them all.
std::optional<std::string> readSlice(const std::string& path, std::int64_t offset, std::size_t length) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  file.seekg(offset);
  std::string bytes(length, '\0');
  file.read(bytes.data(), static_cast<std::streamsize>(length));
  if (static_cast<std::size_t>(file.gcount()) != length) return std::nullopt;
  return bytes;
}

}  // namespace

FileUploader::Result<FileUploader::Digest> FileUploader::digest(const std::string& path, std::size_t chunk) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return FileUploadFailure(Kind::unreadable);
  Sha256 sha256;
  std::string buffer(std::max<std::size_t>(chunk, 1), '\0');
  std::int64_t total = 0;
  while (file) {
    file.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    const auto got = file.gcount();
    if (got > 0) sha256.add(std::string_view(buffer.data(), static_cast<std::size_t>(got)));
    total += got;
  }
  if (file.bad()) return FileUploadFailure(Kind::unreadable);
  return Digest{sha256.hex(), total};
}

asio::awaitable<FileUploader::Result<FileUploader::Uploaded>> FileUploader::upload(std::string path, std::string stepId,
                                                                                    UploadTransport& transport,
                                                                                    std::size_t chunk, int stalls) {
  const std::size_t piece = std::clamp<std::size_t>(chunk, 1, chunkMax);
  Result<Digest> digested = FileUploadFailure(Kind::unreadable);
  co_await runOnWorker([&] { digested = digest(path, piece); });
  if (!digested) co_return digested.error();
  const auto total = digested->bytes;
  const auto sha256 = digested->sha256;

  auto state = co_await transport.uploadState(stepId);
  int stalled = 0;
  int interrupted = 0;
  for (;;) {
    if (!state) co_return state.error();
    const auto held = state->received;
    if (held > total || (state->total && *state->total != total)) {
      co_return FileUploadFailure(Kind::disagree, {}, state->sentence);
    }
    if (state->complete) {
      if (held != total) co_return FileUploadFailure(Kind::disagree, {}, state->sentence);
      co_return Uploaded{total, sha256, *state};
    }
    if (held == total && total > 0) co_return FileUploadFailure(Kind::incomplete, {}, state->sentence);

    const auto length = static_cast<std::size_t>(std::min<std::int64_t>(static_cast<std::int64_t>(piece), total - held));
    std::optional<std::string> bytes;
    co_await runOnWorker([&] { bytes = readSlice(path, held, length); });
    if (!bytes) co_return FileUploadFailure(Kind::unreadable);
    auto next = co_await transport.uploadChunk(stepId, held, total, sha256, std::move(*bytes));
    // A chunk lost on the way (the connection broke, the service was briefly unwell) is not
    // the end: the service says what it holds, and the bytes go on from there.
    if (!next && next.error().kind() == Kind::other && interrupted++ < interruptionsMax) {
      state = co_await transport.uploadState(stepId);
      continue;
    }
    if (next) interrupted = 0;
    if (next && !next->complete && next->received <= held) {
      if (++stalled > stalls) co_return FileUploadFailure(Kind::stalled, {}, next->sentence);
    } else {
      stalled = 0;
    }
    state = std::move(next);
  }
}

}  // namespace quarl

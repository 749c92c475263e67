#include "FileUploader.h"

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include <fstream>

#include "../tests/support/RunAwaitable.h"
#include "../tests/support/TemporaryDirectory.h"

namespace quarl {
namespace {

namespace asio = boost::asio;
using Kind = FileUploadFailure::Kind;

// A service that holds what it was sent; it may start part-way, stall, overcount or lose chunks.
struct ServiceStandIn final : UploadTransport {
  asio::awaitable<Result> uploadState(std::string) override { co_return current(); }
  asio::awaitable<Result> uploadChunk(std::string, std::int64_t offset, std::int64_t total, std::string sha256,
                                      std::string bytes) override {
    offsets.push_back(offset);
    if (losses.contains(offsets.size())) co_return FileUploadFailure(Kind::other);
    shas.insert(sha256);
    if ((!takeAtMost || held.size() < *takeAtMost) && offset == static_cast<std::int64_t>(held.size())) held += bytes;
    complete = static_cast<std::int64_t>(held.size()) == total && !neverComplete;
    co_return current();
  }
  Result current() const {
    MacUploadState state;
    state.received = static_cast<std::int64_t>(held.size()) + overcount;
    state.complete = complete;
    return state;
  }

  std::string held;
  bool complete = false, neverComplete = false;
  std::optional<std::size_t> takeAtMost;
  std::int64_t overcount = 0;
  std::vector<std::int64_t> offsets;
  std::set<std::string> shas;
  std::set<std::size_t> losses;  // which chunk calls (counted from 1) are lost on the way
};

class FileUploaderTest : public ::testing::Test {
 protected:
  FileUploaderTest() {
    for (int i = 0; i < 10'000; ++i) contents_ += static_cast<char>(i * 31);
    std::ofstream(path(), std::ios::binary) << contents_;
  }
  std::string path() const { return (folder_.path() / "report.pdf").string(); }
  std::vector<std::int64_t> offsetsOf(ServiceStandIn& service) {
    const auto done = testing::runAwaitable(io_, FileUploader::upload(path(), "step-1", service, 4096));
    EXPECT_TRUE(done && done->bytes == 10'000 && service.shas == std::set<std::string>{done->sha256} &&
                service.held == contents_);
    return service.offsets;
  }
  std::string failureOf(ServiceStandIn& service, int stalls = 3) {
    const auto result = testing::runAwaitable(io_, FileUploader::upload(path(), "step-1", service, 4096, stalls));
    EXPECT_FALSE(result);
    return result.error().description();
  }

  testing::TemporaryDirectory folder_;
  asio::io_context io_;
  std::string contents_;
};

TEST_F(FileUploaderTest, SendsCheckedChunksResumesFromTheServicesCountAndEndsEachFailureInItsOwnWords) {
  const auto digest = FileUploader::digest(path(), 777);
  ASSERT_TRUE(digest);
  EXPECT_EQ(digest->sha256, FileUploader::digest(path(), 1 << 20)->sha256) << "the chunk size changes nothing";
  EXPECT_EQ(FileUploader::digest((folder_.path() / "gone").string(), 10).error().kind(), Kind::unreadable);

  ServiceStandIn fresh, resumed, down, stalling, overcounting, unfinished;
  resumed.held = contents_.substr(0, 6000);
  down.losses = {1, 2, 3, 4};
  stalling.takeAtMost = 4096;
  overcounting.overcount = 20'000;
  unfinished.neverComplete = true;
  EXPECT_EQ(offsetsOf(fresh), (std::vector<std::int64_t>{0, 4096, 8192}));
  EXPECT_EQ(offsetsOf(resumed), (std::vector<std::int64_t>{6000})) << "a restart goes on from the service's count";

  EXPECT_EQ(failureOf(down), "That file could not be brought back.");
  EXPECT_EQ(down.offsets.size(), 4u) << "three losses in a row are retried, the fourth ends it";
  EXPECT_EQ(failureOf(stalling, 2), "The file stopped arriving at Quarl, so it was not brought back.");
  EXPECT_EQ(stalling.offsets.size(), 4u) << "one chunk taken, then three answers that did not move";
  EXPECT_EQ(failureOf(overcounting), "Quarl and the Mac disagree about how much of the file arrived.");
  EXPECT_EQ(failureOf(unfinished), "The file did not finish arriving at Quarl, so it was not brought back.");
}

TEST(BrainUploadTransport, AnswersBecomeStatesOrTheSentencesOfRefusal) {
  const auto ok = BrainUploadTransport::state(200, R"({"received":10,"total":10,"complete":true,"documentId":"d1"})", false);
  EXPECT_TRUE(ok && ok->documentId == "d1");
  const auto behind = BrainUploadTransport::state(409, R"({"received":4,"complete":false})", true);
  EXPECT_TRUE(behind && behind->received == 4) << "a chunk's 409 says how far the service got";
  const auto failure = [](int status, const std::string& body, bool resumable = true) {
    const auto answer = BrainUploadTransport::state(status, body, resumable);
    EXPECT_FALSE(answer) << status << " " << body;
    return answer.error();
  };
  EXPECT_EQ(failure(409, R"({"received":4,"complete":false})", false).kind(), Kind::refused);
  EXPECT_EQ(failure(413, R"({"code":"too_large","message":"over the limit"})").description(),
            "Quarl would not take the file (over the limit), so it was not brought back.");
  EXPECT_EQ(failure(422, R"({"message":"x","sentence":"That file is damaged."})").description(), "That file is damaged.");
  EXPECT_EQ(failure(401, "").kind(), Kind::notSignedIn);
  EXPECT_TRUE(failure(503, "down").kind() == Kind::other && failure(200, "not json").kind() == Kind::other);
}

}  // namespace
}  // namespace quarl

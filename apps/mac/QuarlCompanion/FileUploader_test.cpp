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

// A service that holds what it was sent, and can be told to start part-way, stop taking
// chunks, or count differently.
class ServiceStandIn final : public UploadTransport {
 public:
  asio::awaitable<Result> uploadState(std::string) override { co_return current(); }
  asio::awaitable<Result> uploadChunk(std::string, std::int64_t offset, std::int64_t total, std::string sha256,
                                      std::string bytes) override {
    offsets.push_back(offset);
    sizes.push_back(bytes.size());
    if (losses.contains(offsets.size())) co_return FileUploadFailure(Kind::other);
    shas.insert(sha256);
    if (takeAtMost && held.size() >= *takeAtMost) co_return current();
    if (offset != static_cast<std::int64_t>(held.size())) co_return current();
    held += bytes;
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
  bool complete = false;
  bool neverComplete = false;
  std::optional<std::size_t> takeAtMost;
  std::int64_t overcount = 0;
  std::vector<std::int64_t> offsets;
  std::vector<std::size_t> sizes;
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
  FileUploader::Result<FileUploader::Uploaded> upload(ServiceStandIn& service, std::size_t chunk, int stalls = 3) {
    return testing::runAwaitable(io_, FileUploader::upload(path(), "step-1", service, chunk, stalls));
  }

  testing::TemporaryDirectory folder_;
  asio::io_context io_;
  std::string contents_;
};

TEST_F(FileUploaderTest, SendsCheckedChunksAndResumesFromWhatTheServiceHolds) {
  const auto digest = FileUploader::digest(path(), 777);
  ASSERT_TRUE(digest);
  EXPECT_EQ(digest->bytes, 10'000);
  EXPECT_EQ(digest->sha256, FileUploader::digest(path(), 1 << 20)->sha256) << "the chunk size changes nothing";
  EXPECT_EQ(FileUploader::digest((folder_.path() / "gone").string(), 10).error().kind(), Kind::unreadable);

  ServiceStandIn fresh;
  const auto done = upload(fresh, 4096);
  ASSERT_TRUE(done) << done.error().description();
  EXPECT_EQ(fresh.held, contents_);
  EXPECT_EQ(fresh.offsets, (std::vector<std::int64_t>{0, 4096, 8192}));
  EXPECT_EQ(fresh.sizes, (std::vector<std::size_t>{4096, 4096, 1808}));
  EXPECT_EQ(fresh.shas, std::set<std::string>{digest->sha256});
  EXPECT_EQ(done->bytes, 10'000);
  EXPECT_TRUE(done->state.complete);

  ServiceStandIn resumed;
  resumed.held = contents_.substr(0, 6000);
  ASSERT_TRUE(upload(resumed, 4096));
  EXPECT_EQ(resumed.offsets, (std::vector<std::int64_t>{6000})) << "a restart goes on from the service's count";
  EXPECT_EQ(resumed.held, contents_);

  ServiceStandIn lossy;
  lossy.losses = {2, 4, 5};
  ASSERT_TRUE(upload(lossy, 4096));
  EXPECT_EQ(lossy.offsets, (std::vector<std::int64_t>{0, 4096, 4096, 8192, 8192, 8192})) << "lost chunks are sent again";
  EXPECT_EQ(lossy.held, contents_);
  ServiceStandIn down;
  down.losses = {1, 2, 3, 4};
  EXPECT_EQ(upload(down, 4096).error().description(), "That file could not be brought back.");
  EXPECT_EQ(down.offsets.size(), 4u) << "three losses in a row are retried, the fourth ends it";
}

TEST_F(FileUploaderTest, StallsDisagreementsAndAnEndWithoutCompletionAreEachTheirOwnFailure) {
  ServiceStandIn stalling;
  stalling.takeAtMost = 4096;
  const auto stalled = upload(stalling, 4096, 2);
  ASSERT_FALSE(stalled);
  EXPECT_EQ(stalled.error().description(), "The file stopped arriving at Quarl, so it was not brought back.");
  EXPECT_EQ(stalling.offsets.size(), 4u) << "one chunk taken, then three answers that did not move";

  ServiceStandIn overcounting;
  overcounting.overcount = 20'000;
  EXPECT_EQ(upload(overcounting, 4096).error().description(),
            "Quarl and the Mac disagree about how much of the file arrived.");

  ServiceStandIn unfinished;
  unfinished.neverComplete = true;
  EXPECT_EQ(upload(unfinished, 4096).error().description(),
            "The file did not finish arriving at Quarl, so it was not brought back.");
}

TEST(BrainUploadTransport, AnswersBecomeStatesOrTheSentencesOfRefusal) {
  const auto ok = BrainUploadTransport::state(200, R"({"received":10,"total":10,"complete":true,"documentId":"d1"})", false);
  ASSERT_TRUE(ok);
  EXPECT_EQ(ok->documentId, "d1");
  const auto behind = BrainUploadTransport::state(409, R"({"received":4,"complete":false})", true);
  ASSERT_TRUE(behind);
  EXPECT_EQ(behind->received, 4);
  EXPECT_FALSE(BrainUploadTransport::state(409, R"({"received":4,"complete":false})", false));
  EXPECT_EQ(BrainUploadTransport::state(413, R"({"code":"too_large","message":"over the limit"})", true).error().description(),
            "Quarl would not take the file (over the limit), so it was not brought back.");
  EXPECT_EQ(BrainUploadTransport::state(422, R"({"message":"x","sentence":"That file is damaged."})", true)
                .error()
                .description(),
            "That file is damaged.");
  EXPECT_EQ(BrainUploadTransport::state(401, "", true).error().kind(), Kind::notSignedIn);
  EXPECT_EQ(BrainUploadTransport::state(503, "down", true).error().description(), "That file could not be brought back.");
  EXPECT_EQ(BrainUploadTransport::state(200, "not json", true).error().kind(), Kind::other);
}

}  // namespace
}  // namespace quarl

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/json/serialize.hpp>
#include <gmock/gmock.h>
#include <thread>

#include "../support/DevBrainAdmin.h"
#include "Base64.h"
#include "BrainClient.h"

namespace quarl {
namespace {

namespace asio = boost::asio;
namespace json = boost::json;
using ::testing::StartsWith;

const ClientIdentity identity{"linux", 42, "0.1.0", "test host", "Linux 6"};

// A signed-in client against a real devbrain, with the rotations it reports.
class BrainClientAgainstDevBrain : public ::testing::Test {
 protected:
  BrainClientAgainstDevBrain() : admin_(brain_), transport_(std::make_shared<BeastHttpTransport>(io_.get_executor())) {}

  Credentials newDevice(std::int64_t accessTtlSeconds = 900) {
    const auto issued = admin_.post("/admin/devices", {{"accessTtlSeconds", accessTtlSeconds}});
    return Credentials{std::string(issued.at("accessToken").as_string()), std::string(issued.at("refreshToken").as_string()),
                       std::string(issued.at("deviceId").as_string())};
  }

  std::unique_ptr<BrainClient> client(std::optional<Credentials> credentials, std::string baseURL = {}) {
    return std::make_unique<BrainClient>(
        io_.get_executor(), baseURL.empty() ? brain_.baseURL() : baseURL, identity, std::move(credentials), transport_,
        clock_, [this](const std::string& access, const std::string& refresh) { rotations_.emplace_back(access, refresh); });
  }

  template <class T>
  T run(asio::awaitable<T> operation) {
    return testing::runAwaitable(io_, std::move(operation));
  }

  static json::object heartbeatBody() { return {{"channels", json::array{}}, {"blockedReason", nullptr}}; }

  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  asio::io_context io_;
  std::shared_ptr<BeastHttpTransport> transport_;
  std::shared_ptr<SystemClock> clock_ = std::make_shared<SystemClock>();
  std::vector<std::pair<std::string, std::string>> rotations_;
};

// Raw calls hand back refusals as they came; a leading slash is optional; devbrain refuses a wrong path or content
// type. Chunks are checked by the operator tests, ingest and events by the capture, files and reports by the relay.
TEST_F(BrainClientAgainstDevBrain, EveryCallKeepsTheWireRules) {
  const auto device = newDevice();
  auto brain = client(device);
  const auto answer = run(brain->call({"POST", "v1/relay/heartbeat"}, heartbeatBody()));
  ASSERT_TRUE(answer) << answer.error().description();
  admin_.post("/admin/faults", {{"path", "/v1/mac/operator/steps/s1/file"}, {"status", 409}, {"body", "busy"}});
  const auto raw = run(brain->operatorFileChunk("s1", 0, 2, std::string(64, 'a'), "ab"));
  ASSERT_TRUE(raw) << raw.error().description();
  EXPECT_EQ(std::pair(raw->status, raw->body), std::pair(409, std::string("busy")));
  admin_.post("/admin/devices/mode", {{"deviceId", device.deviceId}, {"mode", "auto_read"}});
  const auto narrowed = run(brain->setPermissionMode(device.deviceId, "ask"));
  ASSERT_TRUE(narrowed) << narrowed.error().description();
  EXPECT_EQ(narrowed->status, 200) << narrowed->body;

  const json::object promised{{"filename", "short.txt"}, {"mimeType", "text/plain"},
                              {"dataBase64", base64Encode("123456789")}, {"sizeBytes", 10}};
  admin_.post("/admin/jobs", {{"channelKind", "imessage"}, {"conversationRef", "+15550001"}, {"body", "on my way"},
                              {"attachments", json::array{promised}}});
  const auto jobs = run(brain->claimJobs(5));
  ASSERT_TRUE(jobs) << jobs.error().description();
  ASSERT_EQ(jobs->size(), 1u);
  const auto truncated = run(brain->relayAttachmentBytes(jobs->at(0).id, jobs->at(0).files.at(0).id));
  EXPECT_EQ(truncated.error().description(),
            "Quarl sent something unexpected: the file arrived 9 bytes long where 10 were promised");
  // An empty answer is not read: any 2xx is success, whatever its body.
  admin_.post("/admin/faults", {{"path", "/v1/relay/jobs/job-9/result"}, {"status", 200}, {"body", "accepted"}});
  EXPECT_TRUE(run(brain->reportJob("job-9", true, std::nullopt, std::nullopt)));
  // A raw call without a content type sends none.
  ASSERT_TRUE(run(brain->operatorFileState("step-9")));

  const auto requests = admin_.requests();
  const json::object signedWith{{"authorization", "Bearer " + device.accessToken}, {"x-quarl-device", device.deviceId},
                                {"x-quarl-platform", "linux"}, {"x-quarl-build", "42"}, {"x-quarl-version", "0.1.0"}};
  for (const auto& request : requests)
    for (const auto& header : signedWith) EXPECT_EQ(request.at("headers").at(header.key()), header.value()) << header.key();
  EXPECT_FALSE(requests.back().at("headers").as_object().contains("content-type")) << json::serialize(requests.back());
}

// devbrain refuses an exchange that carries authorization or x-quarl-device.
TEST_F(BrainClientAgainstDevBrain, TokensAreRenewedOnceWhenDueOrRefusedAndRefusedRenewalsSayWhetherTheSessionIsGone) {
  const auto device = newDevice();
  auto brain = client(device);
  ASSERT_TRUE(run(brain->usableAccessToken()));
  admin_.post("/admin/access/expire");
  const auto answer = run(brain->call(QuarlEndpoint::heartbeat(), heartbeatBody()));
  ASSERT_TRUE(answer) << answer.error().description();
  EXPECT_EQ(admin_.requests().size(), 3u) << "the refused call, an exchange, a retry; a token with life left was kept";
  EXPECT_EQ(rotations_.size(), 1u);

  // Two 401s in a row: one renewal, one retry, and the second 401 is the caller's failure.
  admin_.post("/admin/faults", {{"path", "/v1/relay/heartbeat"}, {"status", 401}, {"times", 2}});
  const auto twice = run(brain->call(QuarlEndpoint::heartbeat(), heartbeatBody()));
  EXPECT_EQ(twice.error().description(), "401 error: The request was refused.");
  EXPECT_EQ(admin_.refreshExchanges(), 2);

  // Whether a refusal ends the session follows from its code.
  for (const auto& [status, body, sentence] : std::vector<std::tuple<int, std::string, std::string>>{
           {429, "", "429 unavailable: Quarl could not renew this Mac's sign-in."},
           {400, "", "400 invalid_token: Quarl could not renew this Mac's sign-in."},
           {503, R"({"message":"down"})", "503 unavailable: down"}}) {
    admin_.post("/admin/faults", {{"path", "/v1/auth/refresh"}, {"status", status}, {"body", body}});
    EXPECT_EQ(run(brain->renew()).error().description(), sentence);
  }
  // The first refresh token, rotated out above, shown again ends the session.
  EXPECT_THAT(run(client(device)->renew()).error().description(), StartsWith("401 reuse_detected: "));

  // A token about to expire is renewed before it is handed out.
  auto expiring = client(newDevice(30));
  const auto before = run(expiring->currentAccessToken());
  const auto renewed = run(expiring->usableAccessToken());
  ASSERT_TRUE(renewed) << renewed.error().description();
  EXPECT_NE(*renewed, *before);
  EXPECT_EQ(admin_.refreshExchanges(), 4);
}

TEST_F(BrainClientAgainstDevBrain, RefusalsAndUnreachableServicesBecomeSentences) {
  auto brain = client(newDevice());
  const std::pair<json::object, std::string> refusals[] = {
      {{{"status", 403}, {"body", R"({"error":"forbidden"})"}}, "403 forbidden: The request was refused."},
      {{{"status", 200}, {"body", "{not json"}}, "Quarl sent something unexpected: "},
      {{{"drop", true}}, "Could not reach Quarl: "}};
  for (auto [fault, sentence] : refusals) {
    fault["path"] = "/v1/relay/heartbeat";
    admin_.post("/admin/faults", fault);
    const auto failed = run(brain->call(QuarlEndpoint::heartbeat(), heartbeatBody()));
    EXPECT_THAT(failed.error().description(), StartsWith(sentence));
  }

  // A port that was free a moment ago has nothing listening on it.
  asio::ip::tcp::acceptor probe(io_, {asio::ip::make_address("127.0.0.1"), 0});
  const auto port = probe.local_endpoint().port();
  probe.close();
  auto nowhere = client(newDevice(), "http://127.0.0.1:" + std::to_string(port));
  const auto unreached = run(nowhere->call(QuarlEndpoint::heartbeat(), heartbeatBody()));
  EXPECT_TRUE(unreached.error().isTransport()) << unreached.error().description();

  const auto signedOut = run(client(std::nullopt)->call(QuarlEndpoint::heartbeat(), heartbeatBody()));
  EXPECT_EQ(signedOut.error().description(), "This Mac is not signed in to Quarl.");
  EXPECT_EQ(admin_.requests().size(), 3u) << "neither of the last two calls reached devbrain";
}

// A listener whose accept queue is full drops the first SYN, so connecting takes until the first
// retransmission, about a second; then nothing answers. The call still ends at its own timeout.
TEST(BeastHttpTransport, OneTimeoutBoundsTheWholeCall) {
  asio::io_context io;
  asio::ip::tcp::acceptor listener(io);
  const asio::ip::tcp::endpoint loopback(asio::ip::make_address("127.0.0.1"), 0);
  listener.open(loopback.protocol());
  listener.bind(loopback);
  listener.listen(0);
  asio::ip::tcp::socket filler(io);
  filler.connect(listener.local_endpoint());
  std::jthread freeOneSlot([&listener] {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    listener.accept();
  });

  BeastHttpTransport transport(io.get_executor());
  HttpRequest request;
  request.method = "GET";
  request.url = "http://127.0.0.1:" + std::to_string(listener.local_endpoint().port()) + "/";
  request.timeout = std::chrono::seconds(2);
  const auto started = std::chrono::steady_clock::now();
  const auto answer = testing::runAwaitable(io, transport.perform(request));
  const auto took = std::chrono::steady_clock::now() - started;
  ASSERT_FALSE(answer);
  EXPECT_EQ(answer.error(), "the request timed out");
  EXPECT_LT(took, std::chrono::milliseconds(2600));
}

}  // namespace
}  // namespace quarl

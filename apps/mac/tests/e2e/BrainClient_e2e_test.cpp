#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/json/serialize.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/DevBrainAdmin.h"
#include "Base64.h"
#include "BrainClient.h"
#include "Tokens.h"

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

  std::vector<std::string> pathsRequested() {
    std::vector<std::string> paths;
    for (const auto& request : admin_.requests()) paths.emplace_back(request.at("path").as_string());
    return paths;
  }

  testing::DevBrainProcess brain_;
  testing::DevBrainAdmin admin_;
  asio::io_context io_;
  std::shared_ptr<BeastHttpTransport> transport_;
  std::shared_ptr<SystemClock> clock_ = std::make_shared<SystemClock>();
  std::vector<std::pair<std::string, std::string>> rotations_;
};

TEST_F(BrainClientAgainstDevBrain, EveryCallCarriesEveryHeaderAndBothPathFormsReachTheSameURL) {
  const auto device = newDevice();
  auto brain = client(device);
  auto withSlash = run(brain->call({"POST", "/v1/relay/heartbeat"}, heartbeatBody()));
  auto withoutSlash = run(brain->call({"POST", "v1/relay/heartbeat"}, heartbeatBody()));
  ASSERT_TRUE(withSlash) << withSlash.error().description();
  ASSERT_TRUE(withoutSlash) << withoutSlash.error().description();
  EXPECT_EQ(withSlash->at("channelIds"), json::object{});

  admin_.post("/admin/faults", {{"path", "/v1/mac/operator/steps/s1/file"}, {"status", 409}, {"body", "busy"}});
  auto raw = run(brain->send(QuarlEndpoint::operatorFileChunk("s1"), std::string("\x01\x02", 2),
                             std::string("application/octet-stream"), {{"x-quarl-offset", "0"}}));
  ASSERT_TRUE(raw) << raw.error().description();
  EXPECT_EQ(raw->status, 409);
  EXPECT_EQ(raw->body, "busy");

  const auto requests = admin_.requests();
  ASSERT_EQ(requests.size(), 3u);
  for (const auto& request : requests) {
    const auto& headers = request.at("headers").as_object();
    EXPECT_EQ(headers.at("authorization"), json::value("Bearer " + device.accessToken));
    EXPECT_EQ(headers.at("x-quarl-device"), json::value(device.deviceId));
    EXPECT_EQ(headers.at("x-quarl-platform"), "linux");
    EXPECT_EQ(headers.at("x-quarl-build"), "42");
    EXPECT_EQ(headers.at("x-quarl-version"), "0.1.0");
  }
  EXPECT_EQ(requests[0].at("path"), "/v1/relay/heartbeat");
  EXPECT_EQ(requests[1].at("path"), "/v1/relay/heartbeat");
  EXPECT_EQ(requests[0].at("headers").at("content-type"), "application/json");
  EXPECT_EQ(requests[2].at("headers").at("content-type"), "application/octet-stream");
  EXPECT_EQ(requests[2].at("headers").at("x-quarl-offset"), "0");
  EXPECT_EQ(requests[2].at("method"), "PUT");
}

TEST_F(BrainClientAgainstDevBrain, A401RenewsOnceAndRetriesOnceThenGivesUp) {
  const auto device = newDevice();
  auto brain = client(device);
  admin_.post("/admin/access/expire");
  auto answer = run(brain->call(QuarlEndpoint::heartbeat(), heartbeatBody()));
  ASSERT_TRUE(answer) << answer.error().description();
  EXPECT_EQ(pathsRequested(), (std::vector<std::string>{"/v1/relay/heartbeat", "/v1/auth/refresh", "/v1/relay/heartbeat"}));
  ASSERT_EQ(rotations_.size(), 1u);
  EXPECT_NE(rotations_[0].second, device.refreshToken);
  EXPECT_EQ(run(brain->currentAccessToken()), rotations_[0].first);
  const auto refresh = admin_.requests()[1].at("headers").as_object();
  EXPECT_FALSE(refresh.contains("authorization"));
  EXPECT_FALSE(refresh.contains("x-quarl-device"));

  // Two 401s in a row: one renewal, one retry, and the second 401 is the caller's failure.
  admin_.post("/admin/faults", {{"path", "/v1/relay/heartbeat"}, {"status", 401}, {"times", 2}});
  auto refused = run(brain->call(QuarlEndpoint::heartbeat(), heartbeatBody()));
  ASSERT_FALSE(refused);
  ASSERT_TRUE(refused.error().asHttp());
  EXPECT_EQ(refused.error().asHttp()->status, 401);
  EXPECT_EQ(admin_.refreshExchanges(), 2);
}

TEST_F(BrainClientAgainstDevBrain, TwentyConcurrentCallsRefusedWithOneTokenMakeOneExchange) {
  auto brain = client(newDevice());
  admin_.post("/admin/access/expire");
  std::vector<std::future<BrainClient::Result<json::value>>> calls;
  for (int i = 0; i < 20; ++i) {
    calls.push_back(asio::co_spawn(io_, brain->call(QuarlEndpoint::heartbeat(), heartbeatBody()), asio::use_future));
  }
  io_.restart();
  io_.run();
  for (auto& call : calls) {
    const auto answer = call.get();
    EXPECT_TRUE(answer) << answer.error().description();
  }
  EXPECT_EQ(admin_.refreshExchanges(), 1);
  EXPECT_EQ(rotations_.size(), 1u);
}

TEST_F(BrainClientAgainstDevBrain, RefusedRenewalsSayWhetherTheSessionIsGone) {
  const auto device = newDevice();
  auto brain = client(device);

  admin_.post("/admin/faults", {{"path", "/v1/auth/refresh"}, {"status", 429}});
  auto limited = run(brain->renew());
  ASSERT_FALSE(limited);
  EXPECT_EQ(limited.error().asHttp()->code, "unavailable");
  EXPECT_EQ(limited.error().asHttp()->message, "Quarl could not renew this Mac's sign-in.");
  EXPECT_FALSE(limited.error().isSessionGone());

  admin_.post("/admin/faults", {{"path", "/v1/auth/refresh"}, {"status", 400}});
  auto rejected = run(brain->renew());
  ASSERT_FALSE(rejected);
  EXPECT_EQ(rejected.error().asHttp()->code, "invalid_token");
  EXPECT_TRUE(rejected.error().isSessionGone());

  admin_.post("/admin/faults", {{"path", "/v1/auth/refresh"}, {"status", 503}, {"body", R"({"message":"down"})"}});
  auto down = run(brain->renew());
  ASSERT_FALSE(down);
  EXPECT_EQ(down.error().description(), "503 unavailable: down");

  // The pair rotates; the old refresh token shown again ends the session.
  ASSERT_TRUE(run(brain->renew()));
  auto stale = client(device);
  auto reused = run(stale->renew());
  ASSERT_FALSE(reused);
  EXPECT_EQ(reused.error().asHttp()->code, "reuse_detected");
  EXPECT_TRUE(reused.error().isSessionGone());
}

TEST_F(BrainClientAgainstDevBrain, RefusalsAndUnreachableServicesBecomeSentences) {
  auto brain = client(newDevice());
  admin_.post("/admin/faults", {{"path", "/v1/relay/heartbeat"}, {"status", 500}});
  auto failed = run(brain->call(QuarlEndpoint::heartbeat(), heartbeatBody()));
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.error().description(), "500 error: The request was refused.");
  EXPECT_FALSE(failed.error().isSessionGone());

  admin_.post("/admin/faults", {{"path", "/v1/relay/heartbeat"}, {"status", 403}, {"body", R"({"error":"forbidden"})"}});
  failed = run(brain->call(QuarlEndpoint::heartbeat(), heartbeatBody()));
  EXPECT_EQ(failed.error().description(), "403 forbidden: The request was refused.");

  admin_.post("/admin/faults", {{"path", "/v1/relay/heartbeat"}, {"status", 200}, {"body", "{not json"}});
  failed = run(brain->call(QuarlEndpoint::heartbeat(), heartbeatBody()));
  ASSERT_FALSE(failed);
  EXPECT_TRUE(failed.error().isDecoding());

  admin_.post("/admin/faults", {{"path", "/v1/relay/heartbeat"}, {"drop", true}});
  failed = run(brain->call(QuarlEndpoint::heartbeat(), heartbeatBody()));
  ASSERT_FALSE(failed);
  EXPECT_THAT(failed.error().description(), StartsWith("Could not reach Quarl: "));

  // A port that was free a moment ago has nothing listening on it.
  asio::ip::tcp::acceptor probe(io_, {asio::ip::make_address("127.0.0.1"), 0});
  const auto port = probe.local_endpoint().port();
  probe.close();
  auto nowhere = client(newDevice(), "http://127.0.0.1:" + std::to_string(port));
  failed = run(nowhere->call(QuarlEndpoint::heartbeat(), heartbeatBody()));
  ASSERT_FALSE(failed);
  EXPECT_TRUE(failed.error().isTransport());
  EXPECT_THAT(failed.error().description(), StartsWith("Could not reach Quarl: "));

  auto signedOut = client(std::nullopt);
  failed = run(signedOut->call(QuarlEndpoint::heartbeat(), heartbeatBody()));
  EXPECT_EQ(failed.error().description(), "This Mac is not signed in to Quarl.");
  EXPECT_EQ(admin_.requests().size(), 4u);
}

TEST_F(BrainClientAgainstDevBrain, AUsableTokenIsKeptAndAnExpiringOneRenewedFirst) {
  auto lasting = client(newDevice(900));
  const auto kept = run(lasting->usableAccessToken());
  ASSERT_TRUE(kept);
  EXPECT_EQ(admin_.refreshExchanges(), 0);

  auto expiring = client(newDevice(30));
  const auto before = run(expiring->currentAccessToken());
  const auto renewed = run(expiring->usableAccessToken());
  ASSERT_TRUE(renewed) << renewed.error().description();
  EXPECT_NE(*renewed, *before);
  EXPECT_EQ(admin_.refreshExchanges(), 1);
}

// Ingest, uploads and message events are checked through the capture, end to end.
TEST_F(BrainClientAgainstDevBrain, RelayJobsKeepTheWireRules) {
  auto brain = client(newDevice());
  admin_.post("/admin/jobs", {{"channelKind", "imessage"},
                              {"conversationRef", "+15550001"},
                              {"body", "on my way"},
                              {"attachments", json::array{json::object{{"filename", "map.png"},
                                                                       {"mimeType", "image/png"},
                                                                       {"dataBase64", base64Encode("PNGDATA")}},
                                                          json::object{{"filename", "short.txt"},
                                                                       {"mimeType", "text/plain"},
                                                                       {"dataBase64", base64Encode("123456789")},
                                                                       {"sizeBytes", 10}}}}});
  const auto jobs = run(brain->claimJobs(5));
  ASSERT_TRUE(jobs) << jobs.error().description();
  ASSERT_EQ(jobs->size(), 1u);
  const auto& job = jobs->at(0);
  EXPECT_EQ(job.body, "on my way");
  ASSERT_EQ(job.files.size(), 2u);
  const auto file = run(brain->relayAttachmentBytes(job.id, job.files[0].id));
  ASSERT_TRUE(file) << file.error().description();
  EXPECT_EQ(file->bytes, "PNGDATA");
  const auto truncated = run(brain->relayAttachmentBytes(job.id, job.files[1].id));
  ASSERT_FALSE(truncated);
  EXPECT_EQ(truncated.error().description(),
            "Quarl sent something unexpected: the file arrived 9 bytes long where 10 were promised");
  ASSERT_TRUE(run(brain->reportJob(job.id, false, std::string(400, 'x'), std::nullopt)));
  const auto report = admin_.get("/admin/reports").as_array().at(0);
  EXPECT_EQ(report.at("failureReason").as_string().size(), 300u);
  EXPECT_FALSE(report.as_object().contains("providerMessageId"));
  EXPECT_TRUE(run(brain->claimJobs(5))->empty());

  // An empty answer is not read: any 2xx is success, whatever its body.
  admin_.post("/admin/faults", {{"path", "/v1/relay/jobs/job-9/result"}, {"status", 200}, {"body", "accepted"}});
  EXPECT_TRUE(run(brain->reportJob("job-9", true, std::nullopt, std::nullopt)));
  // A raw call without a content type sends none.
  ASSERT_TRUE(run(brain->operatorFileState("step-9")));
  const auto requests = admin_.requests();
  EXPECT_FALSE(requests.back().at("headers").as_object().contains("content-type")) << json::serialize(requests.back());
}

TEST_F(BrainClientAgainstDevBrain, OperatorCallsCarryTheirBodiesAndReadTheServicesAnswers) {
  auto brain = client(newDevice());
  admin_.post("/admin/settings", {{"operatorHoldMs", 50}});
  EXPECT_EQ(run(brain->reportRunStopped("run-1", "menu")), 404) << "no step of run-1 reached this Mac";

  const auto idle = run(brain->nextOperatorStep(25, std::string("run-1"), {"files"}));
  ASSERT_TRUE(idle) << idle.error().description();
  EXPECT_EQ(idle->kind, "idle");
  EXPECT_EQ(admin_.lastBodyTo("/v1/mac/operator/next"),
            (json::object{{"wait", 25}, {"can", json::array{"files"}}, {"holding", "run-1"}}));

  admin_.post("/admin/operator/steps", {{"runId", "run-1"}, {"step", {{"kind", "list_apps"}}}, {"permit", {{"mode", "ask"}}}});
  const auto step = run(brain->nextOperatorStep(25, std::nullopt, {}));
  ASSERT_TRUE(step) << step.error().description();
  EXPECT_EQ(step->kind, "step");
  EXPECT_EQ(step->runId, "run-1");
  EXPECT_EQ(step->liveRunId, "run-1");
  EXPECT_EQ(step->step, (json::value{{"kind", "list_apps"}}));
  EXPECT_EQ(step->permit, (json::value{{"mode", "ask"}}));
  ASSERT_TRUE(step->stepId);

  const json::object refused{{"outcome", "refused"}, {"reason", "No."}};
  const auto accepted = run(brain->postOperatorResult(*step->stepId, refused));
  EXPECT_TRUE(accepted && *accepted);
  const auto again = run(brain->postOperatorResult(*step->stepId, refused));
  ASSERT_FALSE(again);
  EXPECT_EQ(again.error().asHttp()->status, 409);
  EXPECT_EQ(run(brain->reportRunStopped("run-1", "menu")), 200);
  EXPECT_EQ(admin_.get("/admin/operator/stops"), json::parse(R"([{"runId":"run-1","by":"menu"}])"));
}

TEST_F(BrainClientAgainstDevBrain, StepFilesArriveInCheckedChunksAndTheModeIsOnlyNarrowedFromTheMac) {
  const auto device = newDevice();
  auto brain = client(device);
  const auto stepId = admin_.post("/admin/operator/steps", {{"runId", "run-1"}, {"step", {{"kind", "send_file"}, {"ref", "file-12345678"}}}})
                          .at("stepId").as_string();
  const std::string id(stepId);
  // SHA-256 of "xyz".
  const std::string digest = "3608bca1e44ea6c4d268eb6db02260269892c0b42b86bbf1e77a6fa16c3c9282";
  EXPECT_EQ(run(brain->operatorFileState(id))->body, R"({"received":0,"complete":false})");
  EXPECT_EQ(run(brain->operatorFileChunk(id, 0, 3, "abc", "xyz"))->status, 400) << "a digest is 64 hex digits";
  EXPECT_EQ(run(brain->operatorFileChunk(id, 1, 3, digest, "yz"))->body, R"({"received":0,"complete":false})");
  const auto done = run(brain->operatorFileChunk(id, 0, 3, digest, "xyz"));
  EXPECT_EQ(done->status, 200);
  EXPECT_EQ(done->body, R"({"received":3,"complete":true,"total":3})");
  EXPECT_EQ(run(brain->operatorFileChunk(id, 3, 3, digest, ""))->status, 409);
  EXPECT_EQ(run(brain->operatorFileState("step-404"))->status, 404);
  const auto requests = admin_.requests();
  EXPECT_EQ(requests[1].at("headers").at("x-quarl-offset"), "0");
  EXPECT_EQ(requests[1].at("headers").at("x-quarl-sha256"), "abc");
  EXPECT_EQ(requests[1].at("bodyBytes"), 3);

  EXPECT_EQ(run(brain->setPermissionMode(device.deviceId, "auto"))->status, 403) << "a wider mode is set from a screen";
  admin_.post("/admin/devices/mode", {{"deviceId", device.deviceId}, {"mode", "auto"}});
  const auto narrowed = run(brain->setPermissionMode(device.deviceId, "auto_read"));
  EXPECT_EQ(narrowed->status, 200);
  EXPECT_EQ(narrowed->body, R"({"mode":"auto_read"})");
  EXPECT_EQ(run(brain->setPermissionMode(device.deviceId, "everything"))->status, 400);
}

}  // namespace
}  // namespace quarl

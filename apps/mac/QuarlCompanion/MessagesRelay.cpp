#include "MessagesRelay.h"

#include <filesystem>
#include <fstream>

#include "QuarlLog.h"
#include "RandomText.h"
#include "RelayJobReporting.h"
#include "RelaySendConfirmation.h"
#include "ReplyService.h"
#include "Workers.h"

namespace quarl {
namespace asio = boost::asio;
namespace fs = std::filesystem;

namespace {

constexpr std::string_view objectReplacement = "\xEF\xBF\xBC";
constexpr std::string_view noWhatsAppSentence = "This Mac does not send WhatsApp messages yet, so nothing was sent.";

// A private folder for one job's files, removed with them when this goes.
class StagingFolder {
 public:
  StagingFolder() : path_(fs::temp_directory_path() / ("quarl-relay-" + randomUuid())) {
    std::error_code error;
    fs::create_directories(path_, error);
    fs::permissions(path_, fs::perms::owner_all, error);
  }
  ~StagingFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

// The name a staged file gets: the service's file name without any folder part, so that a name
// like "../x" cannot leave the staging folder.
std::string stagedName(const std::string& filename, std::size_t index) {
  auto name = fs::path(filename).filename().string();
  if (name.empty() || name == "." || name == "..") name = "file";
  return std::to_string(index + 1) + "-" + name;
}

std::optional<std::string> writeFile(const fs::path& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!file) return "the file could not be created";
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) return "the file could not be written";
  return std::nullopt;
}

bool isBlank(std::string_view text) { return text.find_first_not_of(" \t\r\n") == std::string_view::npos; }

asio::awaitable<void> sleepOn(std::shared_ptr<const Clock> clock, std::chrono::seconds delay) {
  co_await clock->sleep(delay);
}

asio::awaitable<std::optional<std::string>> sendReport(BrainClient* client, std::string jobId, bool ok,
                                                       std::optional<std::string> failureReason) {
  auto reported = co_await client->reportJob(std::move(jobId), ok, std::move(failureReason), std::nullopt);
  if (reported) co_return std::nullopt;
  co_return reported.error().description();
}

}  // namespace

struct MessagesRelay::Sent {
  std::optional<MessagesSender::StagedFailure> failure;
  SystemTime handedOverAt;
};

MessagesRelay::MessagesRelay(std::shared_ptr<const Clock> clock, std::string storePath,
                             std::shared_ptr<RelaySendLedger> ledger)
    : clock_(std::move(clock)), storePath_(std::move(storePath)), ledger_(std::move(ledger)) {}

asio::awaitable<void> MessagesRelay::runRelayJobs(BrainClient& client) {
  auto jobs = co_await client.claimJobs(claimLimit);
  if (!jobs) {
    QuarlLog::say("quarl: relay: claiming jobs failed — " + jobs.error().description());
    co_return;
  }
  for (auto& job : *jobs) co_await relay(client, std::move(job));
}

asio::awaitable<void> MessagesRelay::relay(BrainClient& client, RelayJob job) {
  // WhatsApp jobs are the WhatsApp session's; until this Mac hosts one they are answered, never
  // dropped and never left claimed.
  if (job.channelKind == "whatsapp") {
    QuarlLog::relayJobFailed(job.id, noWhatsAppSentence);
    std::optional<std::string> reason = std::string(noWhatsAppSentence);
    co_await report(client, job, false, std::move(reason));
    co_return;
  }

  StagingFolder staging;
  std::vector<std::string> paths;
  for (std::size_t i = 0; i < job.files.size(); ++i) {
    auto fetched = co_await client.relayAttachmentBytes(job.id, job.files[i].id);
    std::optional<std::string> problem;
    if (!fetched) {
      problem = "Quarl could not bring the file to this Mac before sending it: " + fetched.error().description();
    } else {
      const auto path = staging.path() / stagedName(job.files[i].filename, i);
      if (auto notWritten = writeFile(path, fetched->bytes)) {
        problem = "Quarl could not write the file to this Mac before sending it: " + *notWritten;
      }
      paths.push_back(path.string());
    }
    if (problem) {
      QuarlLog::relayJobFailed(job.id, *problem);
      co_await report(client, job, false, problem);
      co_return;
    }
  }
  QuarlLog::say("quarl: relay: sending " + std::to_string(paths.size()) + " file(s) with job " + job.id);

  const auto sent = co_await sendReply(job, paths);
  if (sent.failure) {
    const auto reason = sent.failure->description();
    QuarlLog::relayJobFailed(job.id, reason);
    co_await report(client, job, false, reason);
  } else {
    const int expected = RelaySendConfirmation::expectedRows(paths.size(), job.body);
    const auto verdict = co_await confirmRelayedSend(job.conversationRef, sent.handedOverAt, expected);
    const auto waited = std::chrono::duration_cast<std::chrono::seconds>(clock_->now() - sent.handedOverAt);
    const auto outcome = RelaySendConfirmation::outcome(verdict, waited);
    QuarlLog::say("quarl: relay: job " + job.id + (outcome.logClause.empty() ? " sent" : outcome.logClause));
    co_await report(client, job, outcome.ok, outcome.failureReason);
  }
  QuarlLog::say("quarl: relay: removed " + std::to_string(paths.size()) + " staged outgoing file(s)");
}

asio::awaitable<MessagesRelay::Sent> MessagesRelay::sendReply(const RelayJob& job,
                                                              const std::vector<std::string>& filePaths) {
  Sent sent{std::nullopt, clock_->now()};
  using Failure = MessagesSender::Failure;
  if (filePaths.empty() && isBlank(job.body)) {
    sent.failure = MessagesSender::StagedFailure{std::nullopt, Failure(Failure::Kind::nothingToSend)};
    co_return sent;
  }
  const auto runner = MessagesSender::scriptRunner();
  if (!runner) {
    sent.failure = MessagesSender::StagedFailure{std::nullopt, Failure(Failure::Kind::noMessagesApp)};
    co_return sent;
  }

  ChatDatabase::Result<ChatDatabase::ReplyAddress> address = ChatDatabase::ReplyAddress{};
  co_await runOnWorker([&] { address = ChatDatabase{storePath_}.replyAddress(job.conversationRef); });
  // A store that cannot be read leaves the channel's own service and the reference's own form.
  const auto known = address ? *address : ChatDatabase::ReplyAddress{};
  const auto service = ReplyService::choose(job.channelKind, known.theirNewestService);
  QuarlLog::replyService(job.id, job.channelKind, service.serviceType(), service.because);

  const int fileCount = static_cast<int>(filePaths.size());
  sent.handedOverAt = clock_->now();
  for (int i = 0; i < fileCount; ++i) {
    const auto script = MessagesSender::fileScript(job.conversationRef, filePaths[static_cast<std::size_t>(i)], service,
                                                   known.guid);
    std::optional<Failure> failure;
    co_await runOnWorker([&] {
      failure = MessagesSender::runScript(*runner, script, job.conversationRef, MessagesSender::osascriptTimeout);
    });
    if (failure) {
      sent.failure = MessagesSender::StagedFailure{MessagesSender::Stage{i + 1, fileCount}, *failure};
      co_return sent;
    }
    // Messages writes a file's row with the object replacement character as its text.
    ledger_->record(job.conversationRef, objectReplacement, sent.handedOverAt);
  }
  if (!isBlank(job.body)) {
    const auto script = MessagesSender::script(job.conversationRef, job.body, service, known.guid);
    std::optional<Failure> failure;
    co_await runOnWorker([&] {
      failure = MessagesSender::runScript(*runner, script, job.conversationRef, MessagesSender::osascriptTimeout);
    });
    if (failure) {
      sent.failure = MessagesSender::StagedFailure{MessagesSender::Stage{0, fileCount}, *failure};
      co_return sent;
    }
    ledger_->record(job.conversationRef, job.body, sent.handedOverAt);
  }
  co_return sent;
}

asio::awaitable<RelaySendVerdict> MessagesRelay::confirmRelayedSend(std::string conversationRef,
                                                                    SystemTime handedOverAt, int expected) {
  RelaySendVerdict verdict{RelaySendVerdict::NoneWritten{expected}};
  for (const auto delay : RelaySendConfirmation::attemptDelays) {
    co_await clock_->sleep(delay);
    ChatDatabase::Result<ChatDatabase::DeliveryReadout> readout = ChatDatabase::DeliveryReadout{};
    co_await runOnWorker([&] {
      readout = ChatDatabase{storePath_}.outboundSends(handedOverAt - RelaySendConfirmation::clockSlack,
                                                       RelaySendConfirmation::rowsPerLook);
    });
    // A read that fails leaves the last verdict standing; the next look may read.
    if (!readout) {
      verdict = {RelaySendVerdict::NotObservable{readout.error().description()}};
      continue;
    }
    if (readout->unavailableReason) co_return RelaySendVerdict{RelaySendVerdict::NotObservable{*readout->unavailableReason}};
    verdict = RelaySendConfirmation::verdict(readout->rows, conversationRef, expected);
    if (verdict.isFinal()) co_return verdict;
  }
  co_return verdict;
}

asio::awaitable<void> MessagesRelay::report(BrainClient& client, const RelayJob& job, bool ok,
                                            std::optional<std::string> failureReason) {
  auto clock = clock_;
  RelayJobReporting::Sleep sleep = [clock](std::chrono::seconds delay) { return sleepOn(clock, delay); };
  RelayJobReporting::Send send = [&client, id = job.id, ok, failureReason] {
    return sendReport(&client, id, ok, failureReason);
  };
  const auto delivery = co_await RelayJobReporting::deliver(RelayJobReporting::attemptDelays, sleep, send);
  if (!delivery.delivered) {
    QuarlLog::say("quarl: relay: job " + job.id + " report gave up after " + std::to_string(delivery.attempts) +
                  " attempts — " + delivery.lastFailure.value_or("") + "; its outcome stays in this log");
  }
}

}  // namespace quarl

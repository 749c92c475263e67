#include "MessagesRelay.h"

#include <filesystem>
#include <fstream>

#include "OperatorStopLedger.h"
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
constexpr std::string_view interruptedWhatsAppSentence =
    "Quarl stopped while this reply was going into WhatsApp, so it cannot tell whether it went. Check the "
    "conversation in WhatsApp before sending it again.";

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

// A report the service refused for good (gone, not claimed, malformed) will never be taken: the
// same statuses that settle a stopped run's report.
bool refusedForGood(const BrainClientFailure& failure) {
  const auto* http = failure.asHttp();
  return http && stopReportOutcomeOf(http->status) == StopReportOutcome::final;
}

asio::awaitable<std::optional<std::string>> sendReport(BrainClient* client, std::string jobId,
                                                       RelayJournal::Report report,
                                                       std::shared_ptr<std::optional<BrainClientFailure>> last) {
  auto reported =
      co_await client->reportJob(std::move(jobId), report.ok, std::move(report.failureReason), std::move(report.providerMessageId));
  if (reported) co_return std::nullopt;
  *last = reported.error();
  co_return reported.error().description();
}

// Only a failure that says Messages never took the script withdraws the send from the ledger; a
// script that timed out may still have sent.
bool nothingWent(const MessagesSender::Failure& failure) {
  return failure.kind() != MessagesSender::Failure::Kind::timedOut;
}

// A journaled job that could not be reported for a week is forgotten: the service has long
// given up on it, and the log keeps its outcome.
constexpr std::chrono::hours journalKept{7 * 24};

constexpr std::string_view unjournaledSentence =
    "Quarl could not keep a note of this send on this Mac, so it did not send it.";

}  // namespace

struct MessagesRelay::Sent {
  std::optional<std::string> failure;
  bool journaled = false;  // Messages may have been given a script: the job is in the journal
  SystemTime handedOverAt;
};

MessagesRelay::MessagesRelay(std::shared_ptr<const Clock> clock, std::string storePath,
                             std::shared_ptr<RelaySendLedger> ledger, std::shared_ptr<SettingsStore> defaults)
    : clock_(std::move(clock)), storePath_(std::move(storePath)), ledger_(std::move(ledger)), journal_(std::move(defaults)) {}

asio::awaitable<void> MessagesRelay::runRelayJobs(BrainClient& client) {
  // Jobs handed to Messages before a restart, or whose report was not taken, are settled first.
  for (auto entry : journal_.entries()) {
    if (stopping_) co_return;
    if (entry.handedOverAt < clock_->now() - journalKept) {
      QuarlLog::say("quarl: relay: job " + entry.jobId + " was never reported in a week — forgetting it; its outcome is in the log");
      journal_.remove(entry.jobId);
      continue;
    }
    co_await confirmAndReport(client, std::move(entry));
  }
  if (stopping_) co_return;
  auto jobs = co_await client.claimJobs(claimLimit);
  if (!jobs) {
    QuarlLog::say("quarl: relay: claiming jobs failed — " + jobs.error().description());
    co_return;
  }
  for (std::size_t i = 0; i < jobs->size(); ++i) {
    if (stopping_) {
      QuarlLog::say("quarl: relay: quitting — " + std::to_string(jobs->size() - i) +
                    " claimed job(s) not started; the service will offer them again");
      co_return;
    }
    co_await relay(client, std::move((*jobs)[i]));
  }
}

asio::awaitable<void> MessagesRelay::relay(BrainClient& client, RelayJob job) {
  if (auto journaled = journal_.find(job.id)) {
    QuarlLog::say("quarl: relay: job " + job.id + " was offered again after it was handed over — it is not sent again");
    co_await confirmAndReport(client, std::move(*journaled));
    co_return;
  }
  if (job.channelKind == "whatsapp") {
    co_await relayWhatsApp(client, std::move(job));
    co_return;
  }

  auto fetched = co_await fetchFiles(client, job);
  StagingFolder staging;
  std::vector<std::string> paths;
  for (std::size_t i = 0; i < fetched.files.size() && !fetched.problem; ++i) {
    const auto path = staging.path() / stagedName(job.files[i].filename, i);
    if (auto notWritten = writeFile(path, fetched.files[i].bytes)) {
      fetched.problem = "Quarl could not write the file to this Mac before sending it: " + *notWritten;
    }
    paths.push_back(path.string());
  }
  if (fetched.problem) {
    QuarlLog::relayJobFailed(job.id, *fetched.problem);
    RelayJournal::Report notSent{false, fetched.problem, std::nullopt};
    co_await report(client, job.id, std::move(notSent));
    co_return;
  }
  QuarlLog::say("quarl: relay: sending " + std::to_string(paths.size()) + " file(s) with job " + job.id);

  const auto sent = co_await sendReply(job, paths);
  if (sent.failure) {
    QuarlLog::relayJobFailed(job.id, *sent.failure);
    RelayJournal::Report failed{false, sent.failure, std::nullopt};
    if (sent.journaled) journal_.settle(job.id, failed);
    co_await report(client, job.id, std::move(failed));
  } else {
    auto settled = co_await settleFromStore(*journal_.find(job.id));
    co_await report(client, job.id, std::move(settled));
  }
  QuarlLog::say("quarl: relay: removed " + std::to_string(paths.size()) + " staged outgoing file(s)");
}

asio::awaitable<MessagesRelay::Fetched> MessagesRelay::fetchFiles(BrainClient& client, const RelayJob& job) {
  Fetched fetched;
  for (const auto& file : job.files) {
    auto bytes = co_await client.relayAttachmentBytes(job.id, file.id);
    if (!bytes) {
      fetched.problem = "Quarl could not bring the file to this Mac before sending it: " + bytes.error().description();
      co_return fetched;
    }
    fetched.files.push_back(std::move(*bytes));
  }
  co_return fetched;
}

// The page is the WhatsApp session's; the journal keeps the job from ever going twice, as it
// does for Messages, though no store can confirm it afterwards.
asio::awaitable<void> MessagesRelay::relayWhatsApp(BrainClient& client, RelayJob job) {
  auto fetched = co_await fetchFiles(client, job);
  if (fetched.problem) {
    QuarlLog::relayJobFailed(job.id, *fetched.problem);
    RelayJournal::Report notSent{false, fetched.problem, std::nullopt};
    co_await report(client, job.id, std::move(notSent));
    co_return;
  }
  std::vector<WhatsAppWeb::OutgoingFile> files;
  for (std::size_t i = 0; i < fetched.files.size(); ++i) {
    files.push_back({job.files[i].filename, job.files[i].mimeType, std::move(fetched.files[i].bytes)});
  }
  QuarlLog::say("quarl: relay: sending " + std::to_string(files.size()) + " file(s) with job " + job.id + " through WhatsApp");
  RelayJournal::Entry entry{job.id, job.conversationRef, RelaySendLedger::bodyDigest(job.body),
                            RelaySendConfirmation::expectedRows(files.size(), job.body), clock_->now(), std::nullopt,
                            "whatsapp"};
  if (!journal_.begin(entry)) {
    QuarlLog::relayJobFailed(job.id, std::string(unjournaledSentence));
    RelayJournal::Report notSent{false, std::string(unjournaledSentence), std::nullopt};
    co_await report(client, job.id, std::move(notSent));
    co_return;
  }
  WhatsAppWeb::SendOutcome outcome = WhatsAppWeb::SendOutcome::notSent(std::string(WhatsAppWeb::notLinkedSentence));
  if (whatsapp_) outcome = co_await whatsapp_->send(job.conversationRef, job.body, std::move(files), job.conversationName);
  RelayJournal::Report settled{outcome.sent, outcome.sent ? outcome.note : outcome.failure, std::nullopt};
  if (outcome.sent) {
    QuarlLog::say("quarl: relay: job " + job.id + " sent through WhatsApp" + (outcome.note ? " — " + *outcome.note : ""));
  } else {
    QuarlLog::relayJobFailed(job.id, outcome.failure.value_or(""));
  }
  journal_.settle(job.id, settled);
  co_await report(client, job.id, std::move(settled));
}

// A journaled job is never sent again: what the store shows since its hand-over is its outcome.
asio::awaitable<void> MessagesRelay::confirmAndReport(BrainClient& client, RelayJournal::Entry entry) {
  if (!entry.report && entry.channelKind == "whatsapp") {
    QuarlLog::say("quarl: relay: job " + entry.jobId +
                  " was going into WhatsApp when Quarl last stopped — it is reported as unknown, never sent again");
    entry.report = RelayJournal::Report{false, std::string(interruptedWhatsAppSentence), std::nullopt};
    journal_.settle(entry.jobId, *entry.report);
  }
  if (!entry.report) {
    QuarlLog::say("quarl: relay: job " + entry.jobId +
                  " went to Messages before Quarl last stopped — confirming it from the store, not sending it again");
    entry.report = co_await settleFromStore(entry);
  }
  co_await report(client, entry.jobId, std::move(*entry.report));
}

// What the store shows since the job's hand-over, logged and kept in the journal until reported.
asio::awaitable<RelayJournal::Report> MessagesRelay::settleFromStore(RelayJournal::Entry entry) {
  const auto verdict = co_await confirmRelayedSend(entry.conversationRef, entry.handedOverAt, entry.expectedRows);
  const auto waited = std::chrono::duration_cast<std::chrono::seconds>(clock_->now() - entry.handedOverAt);
  const auto outcome = RelaySendConfirmation::outcome(verdict, waited);
  QuarlLog::say("quarl: relay: job " + entry.jobId + (outcome.logClause.empty() ? " sent" : outcome.logClause));
  RelayJournal::Report settled{outcome.ok, outcome.failureReason, outcome.providerMessageId};
  journal_.settle(entry.jobId, settled);
  co_return settled;
}

asio::awaitable<MessagesRelay::Sent> MessagesRelay::sendReply(const RelayJob& job,
                                                              const std::vector<std::string>& filePaths) {
  Sent sent{std::nullopt, false, clock_->now()};
  using Failure = MessagesSender::Failure;
  if (filePaths.empty() && isBlank(job.body)) {
    sent.failure = MessagesSender::StagedFailure{std::nullopt, Failure(Failure::Kind::nothingToSend)}.description();
    co_return sent;
  }
  const auto runner = MessagesSender::scriptRunner();
  if (!runner) {
    sent.failure = MessagesSender::StagedFailure{std::nullopt, Failure(Failure::Kind::noMessagesApp)}.description();
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
  const RelayJournal::Entry entry{job.id, job.conversationRef, RelaySendLedger::bodyDigest(job.body),
                                  RelaySendConfirmation::expectedRows(filePaths.size(), job.body), sent.handedOverAt,
                                  std::nullopt};
  if (!journal_.begin(entry)) {
    sent.failure = std::string(unjournaledSentence);
    co_return sent;
  }
  sent.journaled = true;
  for (int i = 0; i < fileCount; ++i) {
    auto script = MessagesSender::fileScript(job.conversationRef, filePaths[static_cast<std::size_t>(i)], service, known.guid);
    // Messages writes a file's row with the object replacement character as its text.
    sent.failure = co_await sendPart(*runner, std::move(script), job.conversationRef, std::string(objectReplacement),
                                     sent.handedOverAt, MessagesSender::Stage{i + 1, fileCount});
    if (sent.failure) co_return sent;
  }
  if (!isBlank(job.body)) {
    auto script = MessagesSender::script(job.conversationRef, job.body, service, known.guid);
    sent.failure = co_await sendPart(*runner, std::move(script), job.conversationRef, job.body, sent.handedOverAt,
                                     MessagesSender::Stage{0, fileCount});
  }
  co_return sent;
}

// The part is in the ledger before Messages can write its row, so that a live pass woken by that
// row finds it there.
asio::awaitable<std::optional<std::string>> MessagesRelay::sendPart(std::string runner, std::string script,
                                                                    std::string conversationRef, std::string ledgerBody,
                                                                    SystemTime handedOverAt, MessagesSender::Stage stage) {
  ledger_->record(conversationRef, ledgerBody, handedOverAt);
  std::optional<MessagesSender::Failure> failure;
  co_await runOnWorker([&] {
    failure = MessagesSender::runScript(runner, script, conversationRef, MessagesSender::osascriptTimeout);
  });
  if (!failure) co_return std::nullopt;
  if (nothingWent(*failure)) ledger_->withdraw(conversationRef, ledgerBody, handedOverAt);
  co_return MessagesSender::StagedFailure{stage, *failure}.description();
}

asio::awaitable<RelaySendVerdict> MessagesRelay::confirmRelayedSend(std::string conversationRef,
                                                                    SystemTime handedOverAt, int expected) {
  RelaySendVerdict verdict{RelaySendVerdict::NoneWritten{expected}};
  // A look that cannot read the store leaves the last verdict read standing; only a send no
  // look could read at all is not observable.
  std::optional<std::string> unreadable;
  bool read = false;
  for (const auto delay : RelaySendConfirmation::attemptDelays) {
    co_await clock_->sleep(delay);
    ChatDatabase::Result<ChatDatabase::DeliveryReadout> readout = ChatDatabase::DeliveryReadout{};
    co_await runOnWorker([&] {
      readout = ChatDatabase{storePath_}.outboundSends(handedOverAt - RelaySendConfirmation::clockSlack,
                                                       RelaySendConfirmation::rowsPerLook);
    });
    if (!readout) {
      unreadable = readout.error().description();
      continue;
    }
    if (readout->unavailableReason) co_return RelaySendVerdict{RelaySendVerdict::NotObservable{*readout->unavailableReason}};
    read = true;
    verdict = RelaySendConfirmation::verdict(readout->rows, conversationRef, expected);
    if (verdict.isFinal()) co_return verdict;
  }
  if (!read) co_return RelaySendVerdict{RelaySendVerdict::NotObservable{unreadable.value_or("")}};
  co_return verdict;
}

asio::awaitable<void> MessagesRelay::report(BrainClient& client, const std::string& jobId, RelayJournal::Report report) {
  auto clock = clock_;
  auto last = std::make_shared<std::optional<BrainClientFailure>>();
  RelayJobReporting::Sleep sleep = [clock](std::chrono::seconds delay) { return sleepOn(clock, delay); };
  RelayJobReporting::Send send = [&client, jobId, report, last] { return sendReport(&client, jobId, report, last); };
  const auto delivery = co_await RelayJobReporting::deliver(RelayJobReporting::attemptDelays, sleep, send);
  if (delivery.delivered) {
    journal_.remove(jobId);
    co_return;
  }
  if (*last && refusedForGood(**last)) {
    QuarlLog::say("quarl: relay: job " + jobId + " report refused for good — " + delivery.lastFailure.value_or("") +
                  "; its outcome stays in this log");
    journal_.remove(jobId);
    co_return;
  }
  QuarlLog::say("quarl: relay: job " + jobId + " report gave up after " + std::to_string(delivery.attempts) +
                " attempts — " + delivery.lastFailure.value_or("") + "; it is reported again on the next pass");
}

}  // namespace quarl

#include "FileStepExecutor.h"

#include "BrainUploadTransport.h"
#include "FileReadPolicy.h"
#include "FileText.h"
#include "FolderAccess.h"
#include "MacPermissionPolicy.h"
#include "Workers.h"

namespace quarl {
namespace asio = boost::asio;
using Outcome = OperatorStepOutcome;

asio::awaitable<Outcome> FileStepExecutor::run(OperatorStepRequest request, OperatorStepContext context,
                                               std::shared_ptr<BrainClient> client) {
  if (!table_ || table_->runId() != context.runId) table_.emplace(context.runId);
  if (auto* step = std::get_if<OperatorStepRequest::ListFiles>(&request.value)) co_return co_await listFiles(*step);
  if (auto* step = std::get_if<OperatorStepRequest::ReadFile>(&request.value)) {
    co_return co_await readFile(step->ref, std::move(context));
  }
  if (auto* step = std::get_if<OperatorStepRequest::SendFile>(&request.value)) {
    co_return co_await sendFile(step->ref, std::move(context), std::move(client));
  }
  co_return Outcome::refused(cannotYet);
}

asio::awaitable<Outcome> FileStepExecutor::listFiles(OperatorStepRequest::ListFiles step) {
  auto query = FileQuery::from(step.query);
  const auto limit = static_cast<std::size_t>(step.limit);
  if (step.folder) co_return co_await listFolder(*step.folder, std::move(query), limit);
  if (!query) co_return Outcome::refused(FileQuery::noWords);
  MacFileOperator::Found found;
  co_await runOnWorker([&] { found = files_->search(*query, limit); });
  if (!found.finished) co_return Outcome::failed(FileQuery::unfinished);
  co_return listed(std::move(found.files), found.truncated);
}

// A folder's listing takes every file when the query has no words to look for.
asio::awaitable<Outcome> FileStepExecutor::listFolder(std::string folder, std::optional<FileQuery> query,
                                                      std::size_t limit) {
  const auto home = files_->home();
  const auto located = FolderAccess::locate(folder, home);
  // Asking may wait on the owner: the system puts its consent question up the first time. It
  // is asked before resolving too, since without consent nothing inside resolves; a protected
  // folder that has said yes is not asked again once the path is resolved.
  std::optional<std::string_view> consentedTo;
  const auto consented = [&](const std::string& path) -> asio::awaitable<bool> {
    const auto guarded = FolderAccess::protectedFolder(path, home);
    if (!guarded || guarded == consentedTo) co_return true;
    bool may = false;
    co_await runOnWorker([&] { may = files_->mayOpenProtected(*guarded); });
    if (may) consentedTo = guarded;
    co_return may;
  };
  if (FolderAccess::mayLook(located, home) && !co_await consented(located)) {
    co_return Outcome::refused(FolderAccess::noConsent);
  }
  std::optional<std::string> resolved;
  bool isFolder = false;
  co_await runOnWorker([&] {
    resolved = files_->resolve(located);
    isFolder = resolved && files_->isFolder(*resolved);
  });
  if (FileReadPolicy::isOffLimits(resolved.value_or(located), home, files_->ownFolders())) {
    co_return Outcome::refused(FileReadPolicy::secret);
  }
  if (!FolderAccess::mayLook(resolved.value_or(located), home)) co_return Outcome::refused(FolderAccess::notLooked);
  if (!isFolder) co_return Outcome::failed(FolderAccess::noFolder);
  if (!co_await consented(*resolved)) co_return Outcome::refused(FolderAccess::noConsent);
  std::vector<FoundFile> all;
  co_await runOnWorker([&] { all = files_->listFolder(*resolved, query); });
  auto newest = FolderAccess::newest(std::move(all), limit);
  co_return listed(std::move(newest.files), newest.truncated);
}

Outcome FileStepExecutor::listed(std::vector<FoundFile> files, bool truncated) {
  Outcome::FileList list{{}, truncated};
  for (auto& file : files) {
    table_->mint(file);
    list.files.push_back(file.wire());
  }
  return Outcome{std::move(list)};
}

asio::awaitable<std::variant<FoundFile, Outcome>> FileStepExecutor::openable(std::string ref) {
  auto found = table_->find(ref);
  if (!found) co_return Outcome::refused(FileReadPolicy::notFoundByRun);
  std::optional<MacFileOperator::Present> now;
  co_await runOnWorker([&] { now = files_->present(found->path); });
  if (!now || now->identity != found->identity) co_return Outcome::refused(FileReadPolicy::movedSinceFound);
  found->bytes = now->bytes;  // the size asked about is the size sent
  found->cloudOnly = now->cloudOnly;  // the system may have sent it to iCloud since
  if (FileReadPolicy::isOffLimits(found->path, files_->home(), files_->ownFolders())) {
    co_return Outcome::refused(FileReadPolicy::secret);
  }
  if (!FileReadPolicy::isDocument(found->path)) co_return Outcome::refused(FileReadPolicy::notADocument);
  if (found->cloudOnly) co_return Outcome::refused(FileReadPolicy::cloudOnly);
  co_return std::move(*found);
}

asio::awaitable<Outcome> FileStepExecutor::readFile(std::string ref, OperatorStepContext context) {
  auto admitted = co_await openable(std::move(ref));
  if (auto* outcome = std::get_if<Outcome>(&admitted)) co_return std::move(*outcome);
  const auto& file = std::get<FoundFile>(admitted);
  const auto hold = MacPermissionPolicy::fileReadHold(file.path, files_->home(), MacPermit::forStep(context.permit));
  if (hold && !context.ownerPressed()) {
    co_return Outcome{Outcome::NeedsPress{hold->sentence, std::string(rawValue(hold->asks))}};
  }
  DocumentText text;
  co_await runOnWorker([&] { text = files_->readText(file); });
  if (text.failure) co_return Outcome::failed(*text.failure);
  co_return Outcome{Outcome::FileText{std::move(text.text), text.truncated, text.pages, text.pagesRead}};
}

asio::awaitable<Outcome> FileStepExecutor::sendFile(std::string ref, OperatorStepContext context,
                                                    std::shared_ptr<BrainClient> client) {
  auto admitted = co_await openable(std::move(ref));
  if (auto* outcome = std::get_if<Outcome>(&admitted)) co_return std::move(*outcome);
  auto& file = std::get<FoundFile>(admitted);
  if (const auto ask = MacPermissionPolicy::sendAlwaysAsks(file.name, file.bytes); ask && !context.ownerPressed()) {
    co_return Outcome{Outcome::NeedsPress{*ask, std::nullopt}};
  }
  if (!client) co_return Outcome::failed(FileUploadFailure(FileUploadFailure::Kind::notSignedIn).description());
  BrainUploadTransport transport(*client, context.stopped);
  const auto uploaded = co_await files_->upload(std::move(file), context.stepId, transport);
  if (!uploaded) co_return Outcome::failed(uploaded.error().description());
  co_return Outcome{Outcome::SentFile{uploaded->bytes, uploaded->sha256}};
}

}  // namespace quarl

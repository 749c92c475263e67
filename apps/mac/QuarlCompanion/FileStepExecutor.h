#pragma once

#include <memory>
#include <optional>
#include <variant>

#include "FileRefTable.h"
#include "OperatorExecutor.h"
#include "platform/MacFileOperator.h"

namespace quarl {

// Carries out the file steps, "list_files", "read_file" and "send_file", with every check in
// its order; looking and acting are refused as steps this Mac cannot do yet. The files a run's
// searches found are kept for that run alone: a step of a new run starts a new table.
class FileStepExecutor final : public OperatorExecutor {
 public:
  static constexpr std::string_view cannotYet = "This Mac cannot do that kind of step yet, so nothing was done.";

  explicit FileStepExecutor(std::shared_ptr<MacFileOperator> files) : files_(std::move(files)) {}

  bool serves(MacCapabilityClass klass) const override { return klass == MacCapabilityClass::files; }
  boost::asio::awaitable<OperatorStepOutcome> run(OperatorStepRequest request, OperatorStepContext context,
                                                  std::shared_ptr<BrainClient> client) override;

 private:
  boost::asio::awaitable<OperatorStepOutcome> listFiles(OperatorStepRequest::ListFiles step);
  boost::asio::awaitable<OperatorStepOutcome> listFolder(std::string folder, std::optional<FileQuery> query,
                                                         std::size_t limit);
  boost::asio::awaitable<OperatorStepOutcome> readFile(std::string ref, OperatorStepContext context);
  boost::asio::awaitable<OperatorStepOutcome> sendFile(std::string ref, OperatorStepContext context,
                                                       std::shared_ptr<BrainClient> client);
  // The found file behind `ref`, still where it was found, that the rules let Quarl open; or
  // the refusal that says why not.
  boost::asio::awaitable<std::variant<FoundFile, OperatorStepOutcome>> openable(std::string ref);
  OperatorStepOutcome listed(std::vector<FoundFile> files, bool truncated);

  std::shared_ptr<MacFileOperator> files_;
  std::optional<FileRefTable> table_;
};

}  // namespace quarl

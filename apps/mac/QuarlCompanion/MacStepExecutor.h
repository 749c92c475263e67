#pragma once

#include <memory>

#include "OperatorExecutor.h"

namespace quarl {

// Hands each step to the executor of its class: files to one, looking and acting to the
// desktop's, when this computer has a desktop to work.
class MacStepExecutor final : public OperatorExecutor {
 public:
  MacStepExecutor(std::shared_ptr<OperatorExecutor> files, std::shared_ptr<OperatorExecutor> desktop)
      : files_(std::move(files)), desktop_(std::move(desktop)) {}

  bool serves(MacCapabilityClass klass) const override {
    return files_->serves(klass) || (desktop_ && desktop_->serves(klass));
  }
  boost::asio::awaitable<OperatorStepOutcome> run(OperatorStepRequest request, OperatorStepContext context,
                                                  std::shared_ptr<BrainClient> client) override {
    auto& chosen = desktop_ && desktop_->serves(request.klass()) ? *desktop_ : *files_;
    return chosen.run(std::move(request), std::move(context), std::move(client));
  }

 private:
  std::shared_ptr<OperatorExecutor> files_;
  std::shared_ptr<OperatorExecutor> desktop_;
};

}  // namespace quarl

#include "OperatorExecutor.h"

namespace quarl {

boost::asio::awaitable<OperatorStepOutcome> RefusingOperatorExecutor::run(OperatorStepRequest, OperatorStepContext,
                                                                          std::shared_ptr<BrainClient>) {
  co_return OperatorStepOutcome{OperatorStepOutcome::Refused{std::string(sentence)}};
}

}  // namespace quarl

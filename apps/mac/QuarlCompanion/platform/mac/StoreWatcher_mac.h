#pragma once

#include <boost/asio/any_io_executor.hpp>

#include "platform/StoreWatcher.h"

namespace quarl {

// FSEvents on the Messages folder, file by file, so that a write to "chat.db-wal" counts as a
// change even though the folder's own entries stay as they were. Events arrive on the main
// queue and are handed to the coordinator's executor.
class MacStoreWatcher final : public StoreWatcher {
 public:
  explicit MacStoreWatcher(boost::asio::any_io_executor executor);
  ~MacStoreWatcher() override;

  bool watch(const std::string& folder, std::function<void()> changed) override;

  struct Stream;

 private:
  void stop();

  boost::asio::any_io_executor executor_;
  Stream* stream_ = nullptr;
};

}  // namespace quarl

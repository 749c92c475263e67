#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <memory>

#include "platform/StoreWatcher.h"

namespace quarl {

// inotify on the store's folder, read on the coordinator's executor.
class InotifyStoreWatcher final : public StoreWatcher {
 public:
  explicit InotifyStoreWatcher(boost::asio::any_io_executor executor);
  ~InotifyStoreWatcher() override;
  bool watch(const std::string& folder, std::function<void()> changed) override;

 private:
  struct Watch;
  boost::asio::any_io_executor executor_;
  std::shared_ptr<Watch> watch_;
};

}  // namespace quarl

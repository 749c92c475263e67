#pragma once

#include <functional>
#include <string>

namespace quarl {

// Tells the coordinator, on its executor, that something in the Messages store's folder
// changed, so the live pass runs at once instead of at its next 5 s turn. The folder is
// watched, not the files: Messages replaces "-wal" and "-shm" on a checkpoint or a restart,
// and a watch bound to a replaced file would go silent for good. Calls may come in bursts; the
// coordinator gathers them.
class StoreWatcher {
 public:
  virtual ~StoreWatcher() = default;
  // Starts watching `folder`, replacing an earlier watch. False, and no calls, when it cannot.
  virtual bool watch(const std::string& folder, std::function<void()> changed) = 0;
};

}  // namespace quarl

#pragma once

#include <boost/asio/awaitable.hpp>
#include <functional>

namespace quarl {

// Runs blocking work (reading the Messages store, files, hashing, waiting for child processes)
// on a small pool of worker threads and resumes the caller on its own executor when it is done,
// so the main executor is never blocked. `work` must not throw; it usually writes its result
// into a local of the awaiting coroutine, which stays alive until the work is done.
boost::asio::awaitable<void> runOnWorker(std::function<void()> work);

}  // namespace quarl

#include "StoreWatcher_linux.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <boost/asio/posix/stream_descriptor.hpp>

namespace quarl {
namespace asio = boost::asio;

// The inotify descriptor and its reading loop; the loop holds it alive until it is closed.
struct InotifyStoreWatcher::Watch : std::enable_shared_from_this<Watch> {
  Watch(asio::any_io_executor executor, int descriptor, std::function<void()> changed)
      : stream(std::move(executor), descriptor), changed(std::move(changed)) {}

  void read() {
    stream.async_read_some(asio::buffer(buffer), [self = shared_from_this()](boost::system::error_code error, std::size_t) {
      if (error) return;
      self->changed();
      self->read();
    });
  }

  asio::posix::stream_descriptor stream;
  std::function<void()> changed;
  // Events are only counted as "something changed"; their names are not needed.
  std::array<char, 4096> buffer{};
};

InotifyStoreWatcher::InotifyStoreWatcher(asio::any_io_executor executor) : executor_(std::move(executor)) {}

InotifyStoreWatcher::~InotifyStoreWatcher() {
  if (watch_) watch_->stream.close();
}

bool InotifyStoreWatcher::watch(const std::string& folder, std::function<void()> changed) {
  if (watch_) watch_->stream.close();
  watch_.reset();
  const int descriptor = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (descriptor < 0) return false;
  const auto mask = IN_MODIFY | IN_CLOSE_WRITE | IN_CREATE | IN_MOVED_TO | IN_DELETE;
  if (::inotify_add_watch(descriptor, folder.c_str(), mask) < 0) {
    ::close(descriptor);
    return false;
  }
  watch_ = std::make_shared<Watch>(executor_, descriptor, std::move(changed));
  watch_->read();
  return true;
}

}  // namespace quarl

#include "StoreWatcher_mac.h"

#import <CoreServices/CoreServices.h>
#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>

#include <boost/asio/post.hpp>

#include "platform/mac/Text_mac.h"

namespace quarl {

struct MacStoreWatcher::Stream {
  FSEventStreamRef events = nullptr;
  boost::asio::any_io_executor executor;
  std::function<void()> changed;
};

namespace {

// How long FSEvents gathers a burst before it reports it; the coordinator settles it further.
constexpr CFTimeInterval latency = 0.05;

void reported(ConstFSEventStreamRef, void* info, size_t, void*, const FSEventStreamEventFlags*,
              const FSEventStreamEventId*) {
  auto* stream = static_cast<MacStoreWatcher::Stream*>(info);
  boost::asio::post(stream->executor, stream->changed);
}

}  // namespace

MacStoreWatcher::MacStoreWatcher(boost::asio::any_io_executor executor) : executor_(std::move(executor)) {}

MacStoreWatcher::~MacStoreWatcher() { stop(); }

void MacStoreWatcher::stop() {
  if (!stream_) return;
  FSEventStreamStop(stream_->events);
  FSEventStreamInvalidate(stream_->events);
  FSEventStreamRelease(stream_->events);
  delete stream_;
  stream_ = nullptr;
}

bool MacStoreWatcher::watch(const std::string& folder, std::function<void()> changed) {
  stop();
  @autoreleasepool {
    auto* stream = new Stream{nullptr, executor_, std::move(changed)};
    FSEventStreamContext context{0, stream, nullptr, nullptr, nullptr};
    NSArray* paths = [NSArray arrayWithObject:nsString(folder)];
    stream->events = FSEventStreamCreate(nullptr, &reported, &context, (__bridge CFArrayRef)paths,
                                         kFSEventStreamEventIdSinceNow, latency,
                                         kFSEventStreamCreateFlagFileEvents | kFSEventStreamCreateFlagNoDefer);
    if (!stream->events) {
      delete stream;
      return false;
    }
    FSEventStreamSetDispatchQueue(stream->events, dispatch_get_main_queue());
    if (!FSEventStreamStart(stream->events)) {
      FSEventStreamInvalidate(stream->events);
      FSEventStreamRelease(stream->events);
      delete stream;
      return false;
    }
    stream_ = stream;
    return true;
  }
}

}  // namespace quarl

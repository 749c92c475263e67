#include "SpotlightSearch_mac.h"

#include <dispatch/dispatch.h>

#include <algorithm>

namespace quarl {

namespace {

void runOn(NSOperationQueue* queue, void (^work)(void)) {
  [queue addOperations:[NSArray arrayWithObject:[NSBlockOperation blockOperationWithBlock:work]] waitUntilFinished:YES];
}

}  // namespace

SpotlightSearch::Gathered SpotlightSearch::gather(NSPredicate* predicate, NSArray* scopes, std::size_t limit,
                                                  std::chrono::milliseconds time) {
  @autoreleasepool {
    // A query starts, posts its notifications and hands its results over on its operation
    // queue; this serial one is private to the search. The end of gathering is heard where it
    // is posted, so nothing waits on the queue that posts it.
    NSOperationQueue* queue = [[NSOperationQueue alloc] init];
    queue.maxConcurrentOperationCount = 1;
    NSMetadataQuery* query = [[NSMetadataQuery alloc] init];
    query.operationQueue = queue;
    query.predicate = predicate;
    query.searchScopes = scopes;
    query.sortDescriptors = [NSArray arrayWithObject:[NSSortDescriptor sortDescriptorWithKey:NSMetadataItemFSContentChangeDateKey
                                                                                   ascending:NO]];
    dispatch_semaphore_t gathered = dispatch_semaphore_create(0);
    id observer = [[NSNotificationCenter defaultCenter] addObserverForName:NSMetadataQueryDidFinishGatheringNotification
                                                                    object:query
                                                                     queue:nil
                                                                usingBlock:^(NSNotification*) {
                                                                  dispatch_semaphore_signal(gathered);
                                                                }];
    __block BOOL started = NO;
    runOn(queue, ^{
      started = [query startQuery];
    });
    Gathered out;
    out.finished = started && dispatch_semaphore_wait(gathered, dispatch_time(DISPATCH_TIME_NOW,
                                                                              std::chrono::nanoseconds(time).count())) == 0;
    __block Gathered* into = &out;
    runOn(queue, ^{
      [query stopQuery];
      if (!into->finished) return;
      const NSUInteger count = query.resultCount;
      into->truncated = count > limit;
      for (NSUInteger at = 0; at < std::min<NSUInteger>(count, limit); ++at) {
        NSString* path = [query valueOfAttribute:NSMetadataItemPathKey forResultAtIndex:at];
        if (path) into->paths.push_back(path.fileSystemRepresentation);
      }
    });
    [[NSNotificationCenter defaultCenter] removeObserver:observer];
    return out;
  }
}

}  // namespace quarl

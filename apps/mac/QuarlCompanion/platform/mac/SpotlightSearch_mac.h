#pragma once

#import <Foundation/Foundation.h>

#include <chrono>
#include <string>
#include <vector>

namespace quarl {

// One Spotlight query, run to the end of its gathering and stopped: no live updates.
struct SpotlightSearch {
  struct Gathered {
    std::vector<std::string> paths;  // newest first
    bool truncated = false;          // more matched than `limit`
    bool finished = true;            // false when gathering did not end within the time
  };

  // The paths of at most `limit` items under `scopes` that match `predicate`, most recently
  // changed first. Blocks the calling thread, never the main one: the query runs on a queue
  // of its own, as NSMetadataQuery asks.
  static Gathered gather(NSPredicate* predicate, NSArray* scopes, std::size_t limit, std::chrono::milliseconds time);
};

}  // namespace quarl

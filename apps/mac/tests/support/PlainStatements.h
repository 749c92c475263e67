#pragma once

#include <string>

// The Messages store's statements with their conditions written plainly: the date compared in
// seconds with nothing beside it for an index, and the joins in SQLite's own order. They are what
// the readers' statements must return, row for row; the tests run the two side by side and the
// benchmarks time both.
namespace quarl::testing::plain {

std::string messages(bool hasTapbackColumn);
std::string tapbacks(bool hasEmojiColumn);
std::string receipts(bool hasTapbackColumn);
extern const std::string outboundSends;
extern const std::string theirNewestService;

}  // namespace quarl::testing::plain

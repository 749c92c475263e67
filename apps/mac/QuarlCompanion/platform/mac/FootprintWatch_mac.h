#pragma once

#include <cstdint>

namespace quarl {

// Ends this process as soon as its memory footprint passes `bytes`. macOS accepts an address
// space limit but does not enforce it, so the child that reads documents watches itself: a
// document that would take more ends the child, as on Linux, rather than swapping the Mac to a
// halt. Checks every few milliseconds on a thread of its own, until the process ends.
void endWhenFootprintPasses(std::uint64_t bytes);

}  // namespace quarl

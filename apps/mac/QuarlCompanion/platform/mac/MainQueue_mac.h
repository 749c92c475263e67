#pragma once

namespace quarl {

// QueueExecutor's hand-over to the main dispatch queue; `queue` is unused, the main queue being one.
void postToMainQueue(void* queue, void (*run)(void* work), void* work);

}  // namespace quarl

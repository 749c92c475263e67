#include "MainQueue_mac.h"

#include <dispatch/dispatch.h>

namespace quarl {

void postToMainQueue(void*, void (*run)(void* work), void* work) {
  dispatch_async_f(dispatch_get_main_queue(), work, run);
}

}  // namespace quarl

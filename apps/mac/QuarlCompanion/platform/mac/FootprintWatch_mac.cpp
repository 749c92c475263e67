#include "FootprintWatch_mac.h"

#include <mach/mach.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace quarl {

namespace {

// What the system charges this process for: the measure macOS's own memory limits judge by.
std::uint64_t footprint() {
  task_vm_info_data_t info{};
  mach_msg_type_number_t count = TASK_VM_INFO_COUNT;
  if (task_info(mach_task_self(), TASK_VM_INFO, reinterpret_cast<task_info_t>(&info), &count) != KERN_SUCCESS) {
    return 0;
  }
  return info.phys_footprint;
}

}  // namespace

void endWhenFootprintPasses(std::uint64_t bytes) {
  std::thread([bytes] {
    for (;;) {
      // Nothing is flushed or unwound: the parent hears a child that failed, and says the file
      // could not be read.
      if (footprint() > bytes) ::_exit(3);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }).detach();
}

}  // namespace quarl

#include "Clock.h"

namespace quarl {

SystemTime SystemClock::now() const { return std::chrono::system_clock::now(); }

}  // namespace quarl

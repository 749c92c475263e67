#pragma once

#include "platform/NapHold.h"

namespace quarl {

// App Nap held off by a user-initiated activity of the process that still lets the system sleep
// when idle.
class MacNapHold final : public NapHold {
 public:
  ~MacNapHold() override;
  void hold(bool on) override;

 private:
  void* activity_ = nullptr;  // the activity token, retained, while held
};

}  // namespace quarl

#pragma once

#include <functional>

#include "platform/StopHotKey.h"

namespace quarl {

// Control-Option-Command-period through Carbon's hot keys, which reach the application
// whichever app is in front and need no Accessibility permission.
class MacStopHotKey final : public StopHotKey {
 public:
  static constexpr unsigned periodKeyCode = 47;
  static constexpr unsigned controlOptionCommand = 6400;  // controlKey | optionKey | cmdKey
  static constexpr unsigned signature = 0x51554152;       // 'QUAR'
  static constexpr unsigned keyId = 1;

  ~MacStopHotKey() override;
  std::optional<std::string> registerKeys(std::function<void()> pressed) override;

  void fire() const;

 private:
  void unregister();

  std::function<void()> pressed_;
  void* hotKey_ = nullptr;
  void* handler_ = nullptr;
};

}  // namespace quarl

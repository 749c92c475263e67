#include "TerminalQr_linux.h"

#include <qrencode.h>

#include <memory>

namespace quarl {

namespace {

constexpr int quietZone = 2;

}  // namespace

std::optional<std::string> terminalQr(const std::string& payload) {
  const std::unique_ptr<QRcode, decltype(&QRcode_free)> code(
      QRcode_encodeString(payload.c_str(), 0, QR_ECLEVEL_L, QR_MODE_8, 1), QRcode_free);
  if (!code) return std::nullopt;
  const int width = code->width;
  const auto dark = [&](int x, int y) {
    return x >= 0 && y >= 0 && x < width && y < width && (code->data[y * width + x] & 1) != 0;
  };
  std::string drawn;
  for (int y = -quietZone; y < width + quietZone; y += 2) {
    for (int x = -quietZone; x < width + quietZone; ++x) {
      const bool top = dark(x, y);
      const bool bottom = dark(x, y + 1);
      drawn += top && bottom ? "█" : top ? "▀" : bottom ? "▄" : " ";
    }
    drawn += "\n";
  }
  return drawn;
}

}  // namespace quarl

#pragma once

#include <optional>
#include <string>

namespace quarl {

// `payload` as a QR code drawn in a terminal with Unicode half blocks, two rows of modules to a
// line, a dark module as a filled half, inside a quiet zone of blank modules. None when
// libqrencode cannot encode it.
std::optional<std::string> terminalQr(const std::string& payload);

}  // namespace quarl

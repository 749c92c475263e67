#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quarl {

// The text of a message that Messages keeps only in `attributedBody`, an NSArchiver typed
// stream. The text is the first NSString's bytes: after the class name "NSString" comes a '+'
// and then a length, one byte; or 0x81 and a little-endian 16-bit length; or 0x82 and a
// little-endian 32-bit length, which real stores use for very long texts. Exactly the bytes the
// length names are taken: the bytes that end an object may occur inside UTF-8 text, so the end
// is never searched for. None when there is no NSString, no length, a zero length, or a length
// running past the end of the blob. Bytes that are not UTF-8 come back as U+FFFD.
std::optional<std::string> plainTextFromTypedStream(std::string_view blob);

}  // namespace quarl

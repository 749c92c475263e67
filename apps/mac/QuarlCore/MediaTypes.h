#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quarl {

// The type given to Messages' own link-preview archives (files ending ".pluginPayloadAttachment"),
// so the service can tell them from the owner's files.
inline constexpr std::string_view pluginPayloadMimeType = "application/vnd.apple.pluginpayload";

// The MIME type of a file by its extension, compared without regard to case; none when the
// extension is not one this table knows.
std::optional<std::string> mimeTypeForFileName(std::string_view fileName);

// The MIME type of an Apple uniform type identifier; none when the table does not know it.
std::optional<std::string> mimeTypeForUti(std::string_view uti);

// The type of a Messages attachment: the store's own MIME type when it names a specific one,
// then the type identifier, then the file's extension, then "application/octet-stream".
std::string resolveAttachmentMimeType(const std::optional<std::string>& mimeType,
                                      const std::optional<std::string>& uti, std::string_view fileName);

}  // namespace quarl

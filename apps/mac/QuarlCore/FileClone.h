#pragma once

#include <filesystem>

namespace quarl {

// Makes `to` a copy-on-write clone of `from` where the file system can (APFS, Btrfs, XFS):
// made in constant time whatever the size. False, with nothing left at `to`, where it cannot;
// the caller then copies the bytes.
bool cloneFile(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace quarl

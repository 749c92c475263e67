#include "FileRefTable.h"

#include "RandomText.h"

namespace quarl {

void FileRefTable::mint(FoundFile& file) {
  // 128 random bits: 32 hexadecimal digits after the prefix, which isFileRef accepts.
  file.ref = "file-" + randomHex(16);
  files_[file.ref] = file;
}

std::optional<FoundFile> FileRefTable::find(const std::string& ref) const {
  const auto found = files_.find(ref);
  if (found == files_.end()) return std::nullopt;
  return found->second;
}

}  // namespace quarl

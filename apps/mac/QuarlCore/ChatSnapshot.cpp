#include "ChatSnapshot.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <fstream>

#include "FileClone.h"
#include "RandomText.h"

namespace quarl {
namespace fs = std::filesystem;

std::error_code copyFileForSnapshot(const fs::path& from, const fs::path& to) {
  if (cloneFile(from, to)) return {};
  std::error_code error;
  fs::copy_file(from, to, fs::copy_options::none, error);
  return error;
}

namespace {

StoreFingerprint::File fileFingerprint(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {};
  std::error_code error;
  const auto written = fs::last_write_time(path, error);
  return {true, static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino),
          static_cast<std::int64_t>(status.st_size), error ? 0 : static_cast<std::int64_t>(written.time_since_epoch().count())};
}

// Bytes 16 to 40 of the first copy of the log index's header: mxFrame, nPage, aFrameCksum and
// aSalt. The counter before them is left out, since rebuilding the index moves it.
std::string logIndexState(const std::string& sharedMemoryPath) {
  std::ifstream file(sharedMemoryPath, std::ios::binary);
  std::string header(40, '\0');
  file.read(header.data(), static_cast<std::streamsize>(header.size()));
  return file.gcount() == 40 ? header.substr(16) : std::string();
}

}  // namespace

StoreFingerprint StoreFingerprint::of(const std::string& path) {
  auto sharedMemory = fileFingerprint(path + "-shm");
  sharedMemory.size = sharedMemory.writtenAt = 0;
  return {fileFingerprint(path), fileFingerprint(path + "-wal"), sharedMemory, logIndexState(path + "-shm")};
}

std::optional<ChatDatabaseFailure> storeFileProblem(const std::string& path) {
  std::error_code error;
  const auto status = fs::status(path, error);
  if (status.type() == fs::file_type::not_found) return ChatDatabaseFailure::notFound(path);
  if (error) return ChatDatabaseFailure::permissionDenied(path);
  return std::nullopt;
}

boost::system::result<std::unique_ptr<ChatSnapshot>, ChatDatabaseFailure> ChatSnapshot::take(const std::string& path) {
  if (auto problem = storeFileProblem(path)) return *problem;
  std::error_code error;

  const fs::path source(path);
  const auto temporary = fs::temp_directory_path(error);
  // Without a temporary folder the copy would land in the working folder, which is nobody's private place.
  if (error) return ChatDatabaseFailure::permissionDenied(path);
  auto folder = temporary / ("quarl-chatdb-" + randomUuid());
  // From here on the snapshot owns the folder, so every return below removes it.
  std::unique_ptr<ChatSnapshot> snapshot(new ChatSnapshot(folder));
  fs::create_directories(folder, error);
  if (error) return ChatDatabaseFailure::permissionDenied(path);
  // The copy holds the owner's messages: nobody else may read it.
  fs::permissions(folder, fs::perms::owner_all, error);

  const auto copy = folder / source.filename();
  // A main file that cannot be copied means macOS does not let this process read it.
  if (copyFileForSnapshot(source, copy)) return ChatDatabaseFailure::permissionDenied(path);
  for (const char* suffix : {"-wal", "-shm"}) {
    const fs::path side(path + suffix);
    // A side file that is missing or cannot be copied only means fewer recent rows.
    if (fs::exists(side, error)) copyFileForSnapshot(side, copy.string() + suffix);
  }

  snapshot->connection_ = SqliteConnection::open(copy.string(), SQLITE_OPEN_READWRITE);
  if (!snapshot->connection_) return ChatDatabaseFailure::permissionDenied(path);
  snapshot->connection_->skipCheckpointOnClose();
  return snapshot;
}

ChatSnapshot::~ChatSnapshot() {
  connection_.reset();
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

}  // namespace quarl
